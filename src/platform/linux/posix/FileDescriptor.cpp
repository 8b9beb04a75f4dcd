#include "platform/linux/posix/FileDescriptor.h"

#include <cerrno>

namespace quillbeam {

int FileDescriptor::close() {
  if (!isOpen()) return 0;
  // Never repeated on EINTR: the descriptor is gone either way, and its number may belong to another thread by now.
  const int result = ::close(std::exchange(descriptor_, -1));
  return result == 0 || errno == EINTR ? 0 : errno;
}

}  // namespace quillbeam
