#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "Digest.h"
#include "DiskFiles.h"

namespace quillbeam::service {

/// Takes a part's bytes into a file of its own beside the part's place. Leaves nothing behind unless `moveTo` is
/// called.
class PartWriter {
 public:
  explicit PartWriter(std::filesystem::path partial);
  ~PartWriter();
  PartWriter(const PartWriter&) = delete;
  PartWriter& operator=(const PartWriter&) = delete;

  void append(std::string_view bytes);
  std::uint64_t size() const { return size_; }
  /// Writes what is left. The ETag of the whole, without quotes.
  std::string finish();
  /// After `finish`. Replaces what was there.
  void moveTo(const std::filesystem::path& place);

 private:
  void flush();

  std::filesystem::path partial_;
  OpenFile file_;
  Digest digest_{Digest::Kind::sha1};
  std::string buffer_;
  std::uint64_t size_ = 0;
};

}  // namespace quillbeam::service
