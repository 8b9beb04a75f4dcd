#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/ByteChain.h"
#include "base/Date.h"
#include "base/Result.h"

namespace quillbeam {

/// Paths are UTF-8, absolute. Errors are `systemError`s ("POSIXError", code = errno) that name the path, unless said
/// otherwise. Calls block; callable from any thread.
using Path = std::string;

enum class FileKind { regular, directory, other };

struct FileInfo {
  FileKind kind = FileKind::regular;
  std::int64_t size = 0;
  Date modified;
};

enum class Durability {
  cached,   ///< in the page cache: survives our death, not the machine's
  durable,  ///< on the device before the call returns, its directory entry included
};

/// A piece of a file.
struct FilePiece {
  Path file;
  std::int64_t offset = 0;
  std::int64_t count = 0;
};

/// Held while it exists; released by the system when the process dies.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

class Files {
 public:
  virtual ~Files() = default;

  /// Creates the directory and its missing parents, private to the user (0700). Existing ones are fine.
  virtual Result<void> createDirectories(const Path& path) = 0;
  /// Replaces the file's content at once or not at all, durably: temporary file in the same directory, write,
  /// fdatasync, rename, fsync of the directory. Mode 0600. A failure leaves the old content and no temporary file.
  virtual Result<void> writeAtomically(const Path& path, const ByteChain& bytes) = 0;
  /// Writes a new file; EEXIST when there is one. A failure leaves nothing, a death in the middle a torn file.
  virtual Result<void> writeNew(const Path& path, const ByteChain& bytes, Durability durability) = 0;
  /// The same, durably, with a piece of another file, whose bytes do not come through this process where the system can
  /// help it. `FilesError::endOfFile` when that file ends before the piece does.
  virtual Result<void> copyNew(const FilePiece& from, const Path& path) = 0;
  /// To the end of a file, which is made when it is missing. A failure leaves what it held before.
  virtual Result<void> append(const Path& path, const ByteChain& bytes, Durability durability) = 0;
  /// The same, into the page cache, with a piece of another file as `copyNew` does it.
  virtual Result<void> appendCopy(const FilePiece& from, const Path& path) = 0;
  virtual Result<Bytes> read(const Path& path) = 0;
  /// At most `count` bytes from `offset` on; fewer when the file ends before.
  virtual Result<Bytes> readRange(const Path& path, std::int64_t offset, std::int64_t count) = 0;
  /// Names (not paths) of a directory's entries, sorted; without "." and "..".
  virtual Result<std::vector<std::string>> list(const Path& directory) = 0;
  virtual Result<FileInfo> info(const Path& path) = 0;
  virtual bool exists(const Path& path) = 0;
  virtual Result<void> rename(const Path& from, const Path& to) = 0;
  /// A file, or a directory with all it holds. ENOENT when there is none.
  virtual Result<void> remove(const Path& path) = 0;
  /// Bytes that this user may still write where `path` (or its nearest existing parent) lies.
  virtual Result<std::int64_t> freeSpace(const Path& path) = 0;
  /// The exclusive lock on the file (created when missing, its content replaced by `note`), without waiting.
  /// `FilesError::locked` with the holder's note as payload (a string) when another process holds it.
  virtual Result<std::unique_ptr<FileLock>> lock(const Path& path, std::string_view note) = 0;
};

enum class FilesError { locked, endOfFile };
std::string describe(FilesError error);
constexpr std::string_view errorDomain(FilesError) { return "FilesError"; }

/// Whether `writeAtomically` calls its temporary files so (".….tmp"). Only a process that dies in the middle of a write
/// leaves one behind.
bool isTemporaryName(std::string_view name);

/// `directory` + "/" + `name`.
Path joined(const Path& directory, std::string_view name);
/// The last component; the part before it; the last component's extension without the dot.
std::string_view fileName(std::string_view path);
std::string_view parentDirectory(std::string_view path);
std::string_view fileExtension(std::string_view path);

}  // namespace quillbeam
