#pragma once

#include <unistd.h>

#include <utility>

namespace quillbeam {

/// Owns an open file descriptor; -1 when it owns none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor() { close(); }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  /// 0, or what errno said.
  int close();

 private:
  int descriptor_ = -1;
};

}  // namespace quillbeam
