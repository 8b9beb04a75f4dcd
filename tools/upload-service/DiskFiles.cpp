#include "DiskFiles.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quillbeam::service {

namespace {

/// A call's result, tried again when a signal came between.
template <class Call>
std::size_t checked(const char* what, Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0) return static_cast<std::size_t>(result);
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

OpenFile::OpenFile(const std::filesystem::path& path, int flags)
    : descriptor_(
          static_cast<int>(checked(path.c_str(), [&] { return ::open(path.c_str(), flags | O_CLOEXEC, 0600); }))) {}

OpenFile::~OpenFile() { ::close(descriptor_); }

void OpenFile::write(std::string_view bytes) {
  while (!bytes.empty()) {
    bytes.remove_prefix(checked("write", [&] { return ::write(descriptor_, bytes.data(), bytes.size()); }));
  }
}

std::size_t OpenFile::read(char* buffer, std::size_t size) {
  return checked("read", [&] { return ::read(descriptor_, buffer, size); });
}

std::string readFile(const std::filesystem::path& path) {
  OpenFile file(path, O_RDONLY);
  std::string content(std::filesystem::file_size(path), '\0');
  content.resize(file.read(content.data(), content.size()));
  return content;
}

void replaceFile(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path partial = path;
  partial += ".partial";
  OpenFile(partial, O_WRONLY | O_CREAT | O_TRUNC).write(content);
  std::filesystem::rename(partial, path);
}

}  // namespace quillbeam::service
