#include "cli/OutputFile.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>

namespace quillbeam::cli {

Path defaultOutputFile(const Places& places, Date now, std::string_view extension) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  char name[64];
  std::strftime(name, sizeof(name), "Recording %Y-%m-%d at %H.%M.%S.", &local);
  return joined(places.movies, name + std::string(extension));
}

Path absolutePath(const std::string& given) {
  std::error_code ignored;
  const auto path = std::filesystem::absolute(given, ignored);
  return path.lexically_normal().string();
}

Result<void> moveFile(Files& files, const Path& from, const Path& to) {
  auto renamed = files.rename(from, to);
  if (renamed || renamed.error().code() != EXDEV) return renamed;
  constexpr std::int64_t step = 8 << 20;
  TRY(const FileInfo info, files.info(from));
  for (std::int64_t at = 0; at < info.size; at += step) {
    TRY(Bytes bytes, files.readRange(from, at, step));
    const bool isLast = at + step >= info.size;
    TRY_VOID(files.append(to, ByteChain(std::move(bytes)), isLast ? Durability::durable : Durability::cached));
  }
  return files.remove(from);
}

}  // namespace quillbeam::cli
