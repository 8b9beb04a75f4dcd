#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace quillbeam {

/// A fresh private directory of the test's own, removed with all it holds.
class TestDirectory {
 public:
  TestDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quillbeam-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) == nullptr ? std::string() : pattern;
  }
  TestDirectory(const TestDirectory&) = delete;
  TestDirectory& operator=(const TestDirectory&) = delete;
  ~TestDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace quillbeam
