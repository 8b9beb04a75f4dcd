#include "platform/linux/posix/UnixSockets.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "platform/linux/posix/PosixWriting.h"
#include "platform/linux/posix/UnixConnection.h"
#include "platform/linux/posix/UnixListener.h"

namespace quillbeam {

namespace {

constexpr int backlog = 64;

Result<sockaddr_un> addressOf(const Path& path) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof address.sun_path) return LocalSocketError::pathTooLong;
  std::ranges::copy(path, address.sun_path);
  return address;
}

Result<FileDescriptor> makeSocket() {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isOpen()) return systemError("make a socket", errno);
  return socket;
}

Result<FileDescriptor> connected(const Path& path) {
  TRY(const sockaddr_un address, addressOf(path));
  TRY(FileDescriptor socket, makeSocket());
  int result = -1;
  do {
    result = ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return socket;
  if (errno == ENOENT || errno == ECONNREFUSED) return LocalSocketError::notListening;
  return systemError("connect to " + path, errno);
}

/// Only one process at a time looks whether a socket file is stale and replaces it.
Result<FileDescriptor> lockedDirectory(const Path& directory) {
  TRY(FileDescriptor file, openFile(directory, O_RDONLY | O_DIRECTORY));
  while (::flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return systemError("lock " + directory, errno);
  }
  return file;
}

Result<void> removeStale(const Path& path) {
  struct stat found{};
  if (::lstat(path.c_str(), &found) != 0) return success;
  if (!S_ISSOCK(found.st_mode)) return systemError("listen at " + path, EEXIST);
  const Result<FileDescriptor> answer = connected(path);
  if (answer) return LocalSocketError::inUse;
  // A full backlog (EAGAIN) is a process too; so is anything else that does not clearly say nobody is there.
  if (!answer.error().is(LocalSocketError::notListening)) return LocalSocketError::inUse;
  if (::unlink(path.c_str()) != 0) return systemError("remove " + path, errno);
  return success;
}

}  // namespace

Result<std::unique_ptr<LocalListener>> UnixSockets::listen(const Path& path, DispatchQueue& queue, Accepted accepted) {
  TRY(const sockaddr_un address, addressOf(path));
  TRY(const FileDescriptor directory, lockedDirectory(Path(parentDirectory(path))));
  TRY_VOID(removeStale(path));
  TRY(FileDescriptor socket, makeSocket());
  // The file takes over the socket's own mode: private from its first moment, without touching the process's umask.
  if (::fchmod(socket.get(), 0600) != 0) return systemError("listen at " + path, errno);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return systemError("listen at " + path, errno);
  }
  struct stat socketFile{};
  if (::lstat(path.c_str(), &socketFile) != 0 || ::listen(socket.get(), backlog) != 0) {
    const int error = errno;
    ::unlink(path.c_str());
    return systemError("listen at " + path, error);
  }
  auto acceptor = std::make_shared<UnixAcceptor>(io_, std::move(socket), queue, std::move(accepted));
  acceptor->start();
  return std::make_unique<UnixListener>(std::move(acceptor), path, socketFile);
}

Result<std::unique_ptr<LocalConnection>> UnixSockets::connect(const Path& path, DispatchQueue& queue) {
  TRY(FileDescriptor socket, connected(path));
  if (!isOwnPeer(socket)) return LocalSocketError::foreignPeer;
  auto stream = std::make_shared<UnixStream>(io_, std::move(socket), queue);
  return std::make_unique<UnixConnection>(std::move(stream), queue);
}

}  // namespace quillbeam
