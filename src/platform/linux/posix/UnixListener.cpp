#include "platform/linux/posix/UnixListener.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/posix/UnixConnection.h"

namespace quillbeam {

namespace {

FileDescriptor openSpare() { return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

}  // namespace

bool isOwnPeer(const FileDescriptor& socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

UnixAcceptor::UnixAcceptor(IoThread& io, FileDescriptor socket, DispatchQueue& queue, LocalSockets::Accepted accepted)
    : io_(io),
      socket_(std::move(socket)),
      spare_(openSpare()),
      queue_(&queue),
      receiver_(std::make_shared<Receiver>(Receiver{.accepted = std::move(accepted)})) {}

void UnixAcceptor::start() {
  io_.perform([self = shared_from_this()] { self->io_.watch(self->socket_.get(), EPOLLIN, self); });
}

void UnixAcceptor::stop() {
  std::shared_ptr<Receiver> last;
  {
    MutexLock lock(mutex_);
    queue_ = nullptr;
    last = std::exchange(receiver_, nullptr);
  }
  last->alive = false;
  io_.perform([self = shared_from_this()] {
    self->io_.watch(self->socket_.get(), 0, nullptr);
    self->socket_.close();
  });
}

void UnixAcceptor::ready(std::uint32_t) {
  while (acceptOne()) {
  }
}

bool UnixAcceptor::acceptOne() {
  FileDescriptor socket(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.isOpen()) {
    if (errno == EMFILE || errno == ENFILE) turnAwayOne();
    return errno == EINTR || errno == ECONNABORTED;
  }
  if (!isOwnPeer(socket)) return true;
  MutexLock lock(mutex_);
  if (queue_ == nullptr) return true;
  auto stream = std::make_shared<UnixStream>(io_, std::move(socket), *queue_);
  queue_->async([receiver = receiver_, stream = std::move(stream), queue = queue_] {
    auto connection = std::make_unique<UnixConnection>(stream, *queue);
    if (receiver->alive) receiver->accepted(std::move(connection));
  });
  return true;
}

/// Out of descriptors: left waiting, the connection would be reported again and again. The spare one makes room.
void UnixAcceptor::turnAwayOne() {
  spare_.close();
  FileDescriptor(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)).close();
  spare_ = openSpare();
  errno = EAGAIN;
}

UnixListener::~UnixListener() {
  struct stat found{};
  const bool ours =
      ::lstat(path_.c_str(), &found) == 0 && found.st_dev == socketFile_.st_dev && found.st_ino == socketFile_.st_ino;
  if (ours) ::unlink(path_.c_str());
  acceptor_->stop();
}

}  // namespace quillbeam
