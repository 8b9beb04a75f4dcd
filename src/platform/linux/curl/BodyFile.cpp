#include "platform/linux/curl/BodyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/network/Http.h"

namespace quillbeam {

namespace {

Error unreadable(std::string_view doing, int errorNumber) {
  return Error(NetworkError::bodyUnreadable).withUnderlying(systemError(doing, errorNumber));
}

}  // namespace

Result<std::shared_ptr<const BodyFile>> BodyFile::open(const Path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return unreadable("open the file to send", errno);
  auto file = std::make_shared<BodyFile>(descriptor, 0);
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) return unreadable("look at the file to send", errno);
  if (!S_ISREG(status.st_mode)) return unreadable("send something other than a file", EINVAL);
  file->size_ = status.st_size;
  return file;
}

BodyFile::~BodyFile() { ::close(descriptor_); }

Result<std::size_t> BodyFile::read(std::int64_t offset, std::span<char> into) const {
  const auto wanted = std::min<std::int64_t>(static_cast<std::int64_t>(into.size()), size_ - offset);
  if (wanted <= 0) return std::size_t{0};
  ssize_t count = -1;
  do {
    count = ::pread(descriptor_, into.data(), static_cast<std::size_t>(wanted), offset);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return unreadable("read the file to send", errno);
  if (count == 0) return unreadable("read the file to send, which became shorter", EIO);
  return static_cast<std::size_t>(count);
}

}  // namespace quillbeam
