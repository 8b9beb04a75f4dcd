#include "platform/linux/ffmpeg/RandomAccessFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/media/AssetWriter.h"

namespace quillbeam {

namespace {

Error cannotOpen(const Path& path, int errorNumber) {
  const auto error = errorNumber == EEXIST ? AssetWriterError::fileExists : AssetWriterError::cannotOpenFile;
  return Error(error).withUnderlying(systemError("Opening " + path, errorNumber));
}

/// Repeats what a signal interrupted.
template <class Call>
auto retried(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

Result<RandomAccessFile> RandomAccessFile::create(const Path& path) {
  const int descriptor = retried([&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
  if (descriptor < 0) return cannotOpen(path, errno);
  syncDirectoryOf(path);
  return RandomAccessFile(path, descriptor);
}

Result<RandomAccessFile> RandomAccessFile::open(const Path& path, Mode mode) {
  const int flags = (mode == Mode::readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC;
  const int descriptor = retried([&] { return ::open(path.c_str(), flags); });
  if (descriptor < 0) return cannotOpen(path, errno);
  return RandomAccessFile(path, descriptor);
}

RandomAccessFile::RandomAccessFile(RandomAccessFile&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

RandomAccessFile& RandomAccessFile::operator=(RandomAccessFile&& other) noexcept {
  std::swap(path_, other.path_);
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

RandomAccessFile::~RandomAccessFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Error RandomAccessFile::failure(int errorNumber) const {
  const bool isFull = errorNumber == ENOSPC || errorNumber == EDQUOT;
  return Error(isFull ? AssetWriterError::diskFull : AssetWriterError::writeFailed)
      .withUnderlying(systemError("Writing " + path_, errorNumber));
}

Result<std::uint64_t> RandomAccessFile::size() const {
  struct stat information{};
  if (::fstat(descriptor_, &information) < 0) return failure(errno);
  return static_cast<std::uint64_t>(information.st_size);
}

Result<Bytes> RandomAccessFile::read(std::uint64_t offset, std::size_t count) const {
  Bytes bytes(count);
  std::size_t done = 0;
  while (done < count) {
    const auto got = retried(
        [&] { return ::pread(descriptor_, bytes.data() + done, count - done, static_cast<off_t>(offset + done)); });
    if (got < 0) return failure(errno);
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

Result<void> RandomAccessFile::write(std::uint64_t offset, ByteSpan bytes) {
  while (!bytes.empty()) {
    const auto written =
        retried([&] { return ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
    if (written < 0) return failure(errno);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
    offset += static_cast<std::uint64_t>(written);
  }
  return success;
}

Result<void> RandomAccessFile::copy(const RandomAccessFile& from, FileRange bytes, std::uint64_t offset) {
  constexpr std::uint64_t step = 1024 * 1024;
  for (std::uint64_t position = bytes.begin; position < bytes.end; position += step) {
    TRY(const Bytes part, from.read(position, std::min(step, bytes.end - position)));
    TRY_VOID(write(offset + (position - bytes.begin), part));
  }
  return success;
}

Result<void> RandomAccessFile::reserve(FileRange range) {
  const auto offset = static_cast<off_t>(range.begin);
  const auto length = static_cast<off_t>(range.end - range.begin);
  if (retried([&] { return ::fallocate(descriptor_, 0, offset, length); }) == 0) return success;
  if (errno != EOPNOTSUPP && errno != ENOSYS) return failure(errno);
  // This file system keeps no promises; a hole is the next best thing.
  return truncate(range.end);
}

void RandomAccessFile::release(FileRange range) {
  if (range.begin >= range.end) return;
  ::fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(range.begin),
              static_cast<off_t>(range.end - range.begin));
}

Result<void> RandomAccessFile::truncate(std::uint64_t size) {
  if (retried([&] { return ::ftruncate(descriptor_, static_cast<off_t>(size)); }) < 0) return failure(errno);
  return success;
}

void RandomAccessFile::startWriteback(FileRange range) {
  ::sync_file_range(descriptor_, static_cast<off_t>(range.begin), static_cast<off_t>(range.end - range.begin),
                    SYNC_FILE_RANGE_WRITE);
}

Result<void> RandomAccessFile::sync() {
  if (retried([&] { return ::fdatasync(descriptor_); }) < 0) return failure(errno);
  return success;
}

void syncDirectoryOf(const Path& path) {
  const std::string directory(parentDirectory(path));
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  ::fsync(descriptor);
  ::close(descriptor);
}

}  // namespace quillbeam
