#pragma once

#include <fcntl.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace quillbeam::service {

/// An open file. Failures of these and of the functions below are thrown as std::system_error.
class OpenFile {
 public:
  OpenFile(const std::filesystem::path& path, int flags);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  void write(std::string_view bytes);
  /// At most `size` bytes into `buffer`; 0 at the end.
  std::size_t read(char* buffer, std::size_t size);

 private:
  int descriptor_;
};

std::string readFile(const std::filesystem::path& path);
/// The file holds either its old or its new content at every moment.
void replaceFile(const std::filesystem::path& path, std::string_view content);

}  // namespace quillbeam::service
