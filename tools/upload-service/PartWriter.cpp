#include "PartWriter.h"

#include <system_error>
#include <utility>

namespace quillbeam::service {

namespace {

constexpr std::size_t bufferSize = 256 * 1024;

}  // namespace

PartWriter::PartWriter(std::filesystem::path partial)
    : partial_(std::move(partial)), file_(partial_, O_WRONLY | O_CREAT | O_EXCL) {
  buffer_.reserve(bufferSize);
}

PartWriter::~PartWriter() {
  std::error_code ignored;  // it has no name any more when it was moved
  std::filesystem::remove(partial_, ignored);
}

void PartWriter::append(std::string_view bytes) {
  if (buffer_.size() + bytes.size() > bufferSize) flush();
  buffer_ += bytes;
  size_ += bytes.size();
}

void PartWriter::flush() {
  digest_.update(buffer_);
  file_.write(buffer_);
  buffer_.clear();
}

std::string PartWriter::finish() {
  flush();
  return digest_.finish();
}

void PartWriter::moveTo(const std::filesystem::path& place) { std::filesystem::rename(partial_, place); }

}  // namespace quillbeam::service
