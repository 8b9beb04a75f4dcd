#include "platform/linux/posix/PosixWriting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace quillbeam {

namespace {

constexpr std::size_t readStep = 64 * 1024;

int writeSpan(int file, ByteSpan bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    if (written > 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

Result<FileDescriptor> openFile(const Path& path, int flags, mode_t mode) {
  int file = -1;
  do {
    file = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (file < 0 && errno == EINTR);
  if (file < 0) return systemError("open " + path, errno);
  return FileDescriptor(file);
}

Result<void> writeAll(const FileDescriptor& file, const ByteChain& bytes, const Path& path) {
  int error = 0;
  bytes.forEach([&](ByteSpan span) {
    if (error == 0) error = writeSpan(file.get(), span);
  });
  if (error != 0) return systemError("write " + path, error);
  return success;
}

Result<Bytes> readAll(const FileDescriptor& file, const Path& path) {
  struct stat status{};
  if (::fstat(file.get(), &status) != 0) return systemError("stat " + path, errno);
  // One byte more than the size: the read that finds the end then needs no further step.
  Bytes bytes(std::max<std::size_t>(static_cast<std::size_t>(status.st_size) + 1, 512));
  std::size_t filled = 0;
  while (true) {
    if (filled == bytes.size()) bytes.resize(filled + readStep);
    const ssize_t count = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno != EINTR) return systemError("read " + path, errno);
    if (count == 0) break;
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return bytes;
}

Result<void> syncContent(const FileDescriptor& file, const Path& path) {
  // No second try, not even on EINTR: the kernel marks pages clean when writing them back failed.
  if (::fdatasync(file.get()) != 0) return systemError("sync " + path, errno);
  return success;
}

Result<void> syncDirectory(const Path& directory) {
  TRY(const FileDescriptor file, openFile(directory, O_RDONLY | O_DIRECTORY));
  // EINVAL: a file system that has nothing to sync for a directory.
  if (::fsync(file.get()) != 0 && errno != EINVAL) return systemError("sync " + directory, errno);
  return success;
}

}  // namespace quillbeam
