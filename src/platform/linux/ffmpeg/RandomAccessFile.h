#pragma once

#include <cstdint>

#include "base/ByteChain.h"
#include "base/Result.h"
#include "platform/Files.h"
#include "platform/linux/ffmpeg/FragmentIndex.h"

namespace quillbeam {

/// An open file that is read and written at positions. Failures are `AssetWriterError`s with the system's reason below:
/// `cannotOpenFile`, `fileExists`, `diskFull` when there is no room, else `writeFailed`. One thread at a time.
class RandomAccessFile {
 public:
  enum class Mode { readOnly, readWrite };

  /// A new file, private to the user; its directory entry is durable.
  static Result<RandomAccessFile> create(const Path& path);
  static Result<RandomAccessFile> open(const Path& path, Mode mode);
  RandomAccessFile(RandomAccessFile&& other) noexcept;
  RandomAccessFile& operator=(RandomAccessFile&& other) noexcept;
  ~RandomAccessFile();

  const Path& path() const { return path_; }
  Result<std::uint64_t> size() const;
  /// Fewer bytes than asked for only at the end of the file.
  Result<Bytes> read(std::uint64_t offset, std::size_t count) const;
  Result<void> write(std::uint64_t offset, ByteSpan bytes);
  /// Copies `bytes` of `from` to `offset`, piece by piece.
  Result<void> copy(const RandomAccessFile& from, FileRange bytes, std::uint64_t offset);
  /// Makes sure that writing to the range later finds room, and grows the file to hold it.
  Result<void> reserve(FileRange range);
  /// Gives a range's room back; it reads as zeros afterwards. For saving space only: may do nothing.
  void release(FileRange range);
  Result<void> truncate(std::uint64_t size);
  /// Starts writing a range to the device without waiting.
  void startWriteback(FileRange range);
  Result<void> sync();

 private:
  RandomAccessFile(Path path, int descriptor) : path_(std::move(path)), descriptor_(descriptor) {}
  Error failure(int errorNumber) const;

  Path path_;
  int descriptor_ = -1;
};

/// Makes the directory entries beside `path` durable.
void syncDirectoryOf(const Path& path);

}  // namespace quillbeam
