// Preloaded into a program under test: a disk that takes SLOW_DISK_RATE bytes a second for everything below the
// directory SLOW_DISK_BELOW, one request after the other, and a moment for every sync. Other files are as fast as ever.
#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr auto syncTime = 20ms;

template <class Function>
Function* following(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string setting(const char* name) {
  const char* text = std::getenv(name);
  return text == nullptr ? "" : text;
}

bool isSlow(int file) {
  static const std::string below = setting("SLOW_DISK_BELOW") + "/";
  char path[4096];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
  return length > 0 && std::string_view(path, static_cast<std::size_t>(length)).starts_with(below);
}

void occupyDisk(std::chrono::duration<double> time) {
  static std::mutex disk;
  const std::lock_guard lock(disk);
  std::this_thread::sleep_for(time);
}

ssize_t afterWriting(int file, ssize_t written) {
  static const double rate = std::stod(setting("SLOW_DISK_RATE"));
  if (written > 0 && isSlow(file)) occupyDisk(std::chrono::duration<double>(static_cast<double>(written) / rate));
  return written;
}

int afterSyncing(int file, int result) {
  if (result == 0 && isSlow(file)) occupyDisk(syncTime);
  return result;
}

}  // namespace

extern "C" {

ssize_t write(int file, const void* bytes, size_t count) {
  static auto* const next = following(&write, "write");
  return afterWriting(file, next(file, bytes, count));
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
  static auto* const next = following(&pwrite, "pwrite");
  return afterWriting(file, next(file, bytes, count, offset));
}

ssize_t copy_file_range(int from, off_t* fromOffset, int to, off_t* toOffset, size_t count, unsigned flags) {
  static auto* const next = following(&copy_file_range, "copy_file_range");
  return afterWriting(to, next(from, fromOffset, to, toOffset, count, flags));
}

int fdatasync(int file) {
  static auto* const next = following(&fdatasync, "fdatasync");
  return afterSyncing(file, next(file));
}

int fsync(int file) {
  static auto* const next = following(&fsync, "fsync");
  return afterSyncing(file, next(file));
}

}  // extern "C"
