#include "cli/OutputFile.h"

#include <chrono>
#include <ctime>
#include <filesystem>

namespace quillbeam::cli {

Path defaultOutputFile(const Places& places, Date now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  char name[64];
  std::strftime(name, sizeof(name), "Recording %Y-%m-%d at %H.%M.%S.mp4", &local);
  return joined(places.movies, name);
}

Path absolutePath(const std::string& given) {
  std::error_code ignored;
  const auto path = std::filesystem::absolute(given, ignored);
  return path.lexically_normal().string();
}

}  // namespace quillbeam::cli
