#include "platform/Files.h"

#include <utility>

namespace quillbeam {

std::string describe(FilesError error) {
  switch (error) {
    case FilesError::locked:
      return "Another process holds the lock";
    case FilesError::endOfFile:
      return "The file ends too early";
  }
  std::unreachable();
}

bool isTemporaryName(std::string_view name) { return name.starts_with('.') && name.ends_with(".tmp"); }

Path joined(const Path& directory, std::string_view name) {
  Path path = directory;
  if (!path.ends_with('/')) path += '/';
  return path += name;
}

std::string_view fileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::string_view parentDirectory(std::string_view path) {
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return path.substr(0, slash == 0 ? 1 : slash);
}

std::string_view fileExtension(std::string_view path) {
  const std::string_view name = fileName(path);
  const auto dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

}  // namespace quillbeam
