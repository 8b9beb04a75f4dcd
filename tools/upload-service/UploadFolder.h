#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillbeam::service {

/// Every part but the last has this size.
inline constexpr std::uint64_t partSize = 5'242'880;
inline constexpr int mostParts = 10'000;

/// The folder that holds one upload's parts until they are assembled.
class UploadFolder {
 public:
  explicit UploadFolder(std::filesystem::path path) : path_(std::move(path)) {}

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path recordFile() const { return path_ / "upload.json"; }
  std::filesystem::path partFile(int part) const { return path_ / ("part-" + std::to_string(part)); }

  /// The parts' files in order. Throws a Refusal (400) unless they make up a whole: numbers 1…n without a gap, at least
  /// one, every one but the last of `partSize` bytes.
  std::vector<std::filesystem::path> wholeSequence() const;
  void removeParts() const;

 private:
  std::vector<int> partNumbers() const;
  void checkSize(int part) const;

  std::filesystem::path path_;
};

}  // namespace quillbeam::service
