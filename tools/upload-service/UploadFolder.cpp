#include "UploadFolder.h"

#include <algorithm>
#include <charconv>

#include "Refusal.h"

namespace quillbeam::service {

namespace fs = std::filesystem;

namespace {

/// 0 for names of other things, also of parts that are just being received.
int partNumberOf(const std::string& name) {
  int number = 0;
  if (!name.starts_with("part-")) return 0;
  const char* end = name.data() + name.size();
  return std::from_chars(name.data() + 5, end, number).ptr == end ? number : 0;
}

}  // namespace

std::vector<int> UploadFolder::partNumbers() const {
  std::vector<int> numbers;
  for (const auto& entry : fs::directory_iterator(path_)) {
    if (const int number = partNumberOf(entry.path().filename())) numbers.push_back(number);
  }
  std::ranges::sort(numbers);
  return numbers;
}

void UploadFolder::checkSize(int part) const {
  const std::uint64_t size = fs::file_size(partFile(part));
  if (size == partSize) return;
  throw Refusal(400, size < partSize ? "EntityTooSmall" : "EntityTooLarge",
                "Part " + std::to_string(part) + " has " + std::to_string(size) +
                    " bytes; every part but the last has " + std::to_string(partSize));
}

std::vector<fs::path> UploadFolder::wholeSequence() const {
  const std::vector<int> numbers = partNumbers();
  if (numbers.empty()) throw Refusal(400, "InvalidPart", "No part was stored");
  std::vector<fs::path> files;
  for (const int number : numbers) {
    const int expected = static_cast<int>(files.size()) + 1;
    if (number != expected) throw Refusal(400, "InvalidPart", "Part " + std::to_string(expected) + " is missing");
    if (number != numbers.back()) checkSize(number);
    files.push_back(partFile(number));
  }
  return files;
}

void UploadFolder::removeParts() const {
  for (const int number : partNumbers()) fs::remove(partFile(number));
}

}  // namespace quillbeam::service
