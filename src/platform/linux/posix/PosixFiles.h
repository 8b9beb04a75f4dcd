#pragma once

#include "platform/Files.h"

namespace quillbeam {

/// Files of the real file system. Stateless. Temporary files of atomic writes are called ".XXXXXX.tmp"; only a process
/// that died in the middle of a write leaves one.
class PosixFiles final : public Files {
 public:
  Result<void> createDirectories(const Path& path) override;
  Result<void> writeAtomically(const Path& path, const ByteChain& bytes) override;
  Result<void> copyNew(const FilePiece& from, const Path& path) override;
  Result<void> appendCopy(const FilePiece& from, const Path& path) override;
  Result<void> writeNew(const Path& path, const ByteChain& bytes, Durability durability) override;
  Result<void> append(const Path& path, const ByteChain& bytes, Durability durability) override;
  Result<Bytes> read(const Path& path) override;
  Result<Bytes> readRange(const Path& path, std::int64_t offset, std::int64_t count) override;
  Result<std::vector<std::string>> list(const Path& directory) override;
  Result<FileInfo> info(const Path& path) override;
  bool exists(const Path& path) override;
  Result<void> rename(const Path& from, const Path& to) override;
  Result<void> remove(const Path& path) override;
  Result<std::int64_t> freeSpace(const Path& path) override;
  Result<std::unique_ptr<FileLock>> lock(const Path& path, std::string_view note) override;
};

}  // namespace quillbeam
