#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "base/Result.h"
#include "platform/Files.h"

namespace quillbeam {

/// A file that is sent: open from the beginning of its transfer, read where it is needed. Its length is what it was
/// when it was opened. Failures are `NetworkError::bodyUnreadable` with the system's reason below.
class BodyFile {
 public:
  /// Regular files only; never waits for the other end of a pipe.
  static Result<std::shared_ptr<const BodyFile>> open(const Path& path);
  BodyFile(int descriptor, std::int64_t size) : descriptor_(descriptor), size_(size) {}
  BodyFile(const BodyFile&) = delete;
  BodyFile& operator=(const BodyFile&) = delete;
  ~BodyFile();

  std::int64_t size() const { return size_; }
  /// Fills some of `into` from `offset` on and says how much: nothing only at the end. A file that ends before its
  /// length has become unreadable.
  Result<std::size_t> read(std::int64_t offset, std::span<char> into) const;

 private:
  int descriptor_;
  std::int64_t size_;
};

}  // namespace quillbeam
