#include "platform/linux/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/Value.h"
#include "platform/linux/posix/PosixWriting.h"

namespace quillbeam {

namespace {

/// The kernel copies from cache to cache; where it cannot, the bytes come through here.
Result<void> copyAll(const FilePiece& from, const FileDescriptor& to, const Path& path) {
  constexpr std::int64_t step = 256 * 1024;
  TRY(const FileDescriptor source, openFile(from.file, O_RDONLY));
  Bytes buffer;
  for (std::int64_t done = 0; done < from.count;) {
    off_t at = from.offset + done;
    const auto left = static_cast<std::size_t>(from.count - done);
    ssize_t copied = buffer.empty() ? ::copy_file_range(source.get(), &at, to.get(), nullptr, left, 0) : -1;
    if (copied < 0 && buffer.empty() && errno == EINTR) continue;
    if (copied < 0) {
      buffer.resize(static_cast<std::size_t>(std::min(step, from.count - done)));
      copied = ::pread(source.get(), buffer.data(), buffer.size(), from.offset + done);
      if (copied < 0) return systemError("read " + from.file, errno);
      TRY_VOID(writeAll(to, ByteChain(Bytes(buffer.begin(), buffer.begin() + copied)), path));
    }
    if (copied == 0) return FilesError::endOfFile;
    done += copied;
  }
  return success;
}

/// A fresh file that is removed again unless it was kept: failing half-way leaves nothing behind.
class UnfinishedFile {
 public:
  UnfinishedFile(FileDescriptor file, Path path) : file_(std::move(file)), path_(std::move(path)) {}
  UnfinishedFile(UnfinishedFile&& other) noexcept
      : file_(std::move(other.file_)), path_(std::exchange(other.path_, {})) {}
  ~UnfinishedFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  const Path& path() const { return path_; }

  Result<void> fill(const ByteChain& bytes, Durability durability) {
    TRY_VOID(writeAll(file_, bytes, path_));
    return complete(durability);
  }
  Result<void> copy(const FilePiece& from) {
    TRY_VOID(copyAll(from, file_, path_));
    return complete(Durability::durable);
  }
  void keep() { path_.clear(); }

 private:
  Result<void> complete(Durability durability) {
    if (durability == Durability::durable) TRY_VOID(syncContent(file_, path_));
    // Network file systems report a full disk only here.
    if (const int error = file_.close(); error != 0) return systemError("close " + path_, error);
    return success;
  }

  FileDescriptor file_;
  Path path_;
};

Result<UnfinishedFile> makeTemporary(const Path& directory) {
  Path path = joined(directory, ".XXXXXX.tmp");
  const int file = ::mkostemps(path.data(), 4, O_CLOEXEC);
  if (file < 0) return systemError("create a temporary file in " + directory, errno);
  return UnfinishedFile(FileDescriptor(file), std::move(path));
}

/// The open file, behind whose end `write` has written.
template <class Write>
Result<FileDescriptor> appendTo(const Path& path, Write write) {
  // Not O_APPEND: the kernel does not copy into such files.
  TRY(FileDescriptor file, openFile(path, O_WRONLY | O_CREAT));
  const off_t before = ::lseek(file.get(), 0, SEEK_END);
  if (before < 0) return systemError("find the end of " + path, errno);
  Result<void> written = write(file);
  if (written) return file;
  // Whatever was written of it would read as damage.
  if (::ftruncate(file.get(), before) == 0) return written.error();
  return systemError("undo a partial append to " + path, errno).withUnderlying(written.error());
}

class FlockLock final : public FileLock {
 public:
  explicit FlockLock(FileDescriptor file) : file_(std::move(file)) {}

 private:
  FileDescriptor file_;
};

/// Whether the locked file is still the one that others find at the path.
bool isStillAt(const FileDescriptor& file, const Path& path) {
  struct stat locked{};
  struct stat found{};
  return ::fstat(file.get(), &locked) == 0 && ::stat(path.c_str(), &found) == 0 && locked.st_dev == found.st_dev &&
         locked.st_ino == found.st_ino;
}

Error lockedBy(const FileDescriptor& file, const Path& path) {
  const Result<Bytes> note = readAll(file, path);
  return Error(FilesError::locked).withPayload(note ? std::string(note->begin(), note->end()) : std::string());
}

Date dateOf(const timespec& time) {
  return Date(std::chrono::floor<std::chrono::microseconds>(std::chrono::seconds(time.tv_sec) +
                                                            std::chrono::nanoseconds(time.tv_nsec)));
}

}  // namespace

Result<void> PosixFiles::createDirectories(const Path& path) {
  if (::mkdir(path.c_str(), 0700) == 0) return success;
  if (errno == ENOENT && path.size() > 1) {
    TRY_VOID(createDirectories(Path(parentDirectory(path))));
    if (::mkdir(path.c_str(), 0700) == 0) return success;
  }
  struct stat status{};
  const int error = errno;
  if (error == EEXIST && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return success;
  return systemError("create the directory " + path, error);
}

Result<void> PosixFiles::writeAtomically(const Path& path, const ByteChain& bytes) {
  const Path directory(parentDirectory(path));
  TRY(UnfinishedFile temporary, makeTemporary(directory));
  TRY_VOID(temporary.fill(bytes, Durability::durable));
  TRY_VOID(rename(temporary.path(), path));
  temporary.keep();
  return syncDirectory(directory);
}

Result<void> PosixFiles::copyNew(const FilePiece& from, const Path& path) {
  TRY(FileDescriptor file, openFile(path, O_WRONLY | O_CREAT | O_EXCL));
  UnfinishedFile created(std::move(file), path);
  TRY_VOID(created.copy(from));
  TRY_VOID(syncDirectory(Path(parentDirectory(path))));
  created.keep();
  return success;
}

Result<void> PosixFiles::writeNew(const Path& path, const ByteChain& bytes, Durability durability) {
  TRY(FileDescriptor file, openFile(path, O_WRONLY | O_CREAT | O_EXCL));
  UnfinishedFile created(std::move(file), path);
  TRY_VOID(created.fill(bytes, durability));
  if (durability == Durability::durable) TRY_VOID(syncDirectory(Path(parentDirectory(path))));
  created.keep();
  return success;
}

Result<void> PosixFiles::append(const Path& path, const ByteChain& bytes, Durability durability) {
  TRY(FileDescriptor file, appendTo(path, [&](const FileDescriptor& end) { return writeAll(end, bytes, path); }));
  if (durability == Durability::durable) {
    TRY_VOID(syncContent(file, path));
    TRY_VOID(syncDirectory(Path(parentDirectory(path))));
  }
  if (const int error = file.close(); error != 0) return systemError("close " + path, error);
  return success;
}

Result<void> PosixFiles::appendCopy(const FilePiece& from, const Path& path) {
  TRY(FileDescriptor file, appendTo(path, [&](const FileDescriptor& end) { return copyAll(from, end, path); }));
  if (const int error = file.close(); error != 0) return systemError("close " + path, error);
  return success;
}

Result<Bytes> PosixFiles::read(const Path& path) {
  TRY(const FileDescriptor file, openFile(path, O_RDONLY));
  return readAll(file, path);
}

Result<Bytes> PosixFiles::readRange(const Path& path, std::int64_t offset, std::int64_t count) {
  TRY(const FileDescriptor file, openFile(path, O_RDONLY));
  Bytes bytes(static_cast<std::size_t>(count));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const off_t at = offset + static_cast<off_t>(filled);
    const ssize_t taken = ::pread(file.get(), bytes.data() + filled, bytes.size() - filled, at);
    if (taken < 0 && errno != EINTR) return systemError("read " + path, errno);
    if (taken == 0) break;
    if (taken > 0) filled += static_cast<std::size_t>(taken);
  }
  bytes.resize(filled);
  return bytes;
}

Result<std::vector<std::string>> PosixFiles::list(const Path& directory) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(directory.c_str()), &::closedir);
  if (!stream) return systemError("list " + directory, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return systemError("list " + directory, errno);
  std::ranges::sort(names);
  return names;
}

Result<FileInfo> PosixFiles::info(const Path& path) {
  struct stat status{};
  if (::stat(path.c_str(), &status) != 0) return systemError("stat " + path, errno);
  FileInfo info{.kind = FileKind::other, .size = status.st_size, .modified = dateOf(status.st_mtim)};
  if (S_ISREG(status.st_mode)) info.kind = FileKind::regular;
  if (S_ISDIR(status.st_mode)) info.kind = FileKind::directory;
  return info;
}

bool PosixFiles::exists(const Path& path) { return ::access(path.c_str(), F_OK) == 0; }

Result<void> PosixFiles::rename(const Path& from, const Path& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) return systemError("rename " + from + " to " + to, errno);
  return success;
}

Result<void> PosixFiles::remove(const Path& path) {
  std::error_code error;
  const auto removed = std::filesystem::remove_all(path, error);
  if (error) return systemError("remove " + path, error.value());
  if (removed == 0) return systemError("remove " + path, ENOENT);
  return success;
}

Result<std::int64_t> PosixFiles::freeSpace(const Path& path) {
  Path existing = path;
  while (!exists(existing) && existing.size() > 1) existing = Path(parentDirectory(existing));
  struct statvfs status{};
  if (::statvfs(existing.c_str(), &status) != 0) return systemError("measure the free space at " + path, errno);
  return static_cast<std::int64_t>(status.f_bavail) * static_cast<std::int64_t>(status.f_frsize);
}

Result<std::unique_ptr<FileLock>> PosixFiles::lock(const Path& path, std::string_view note) {
  while (true) {
    TRY(FileDescriptor file, openFile(path, O_RDWR | O_CREAT));
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EINTR) continue;
      if (errno == EWOULDBLOCK) return lockedBy(file, path);
      return systemError("lock " + path, errno);
    }
    // Between opening and locking a former holder may have removed the file: then this lock guards nothing.
    if (!isStillAt(file, path)) continue;
    if (::ftruncate(file.get(), 0) != 0) return systemError("write " + path, errno);
    TRY_VOID(writeAll(file, ByteChain(Bytes(note.begin(), note.end())), path));
    return std::make_unique<FlockLock>(std::move(file));
  }
}

}  // namespace quillbeam
