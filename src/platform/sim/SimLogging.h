#pragma once

#include <string>
#include <vector>

#include "base/Mutex.h"
#include "platform/Logging.h"

namespace quillbeam {

/// Keeps what was printed.
class SimStandardOutput final : public StandardOutput {
 public:
  void print(std::string_view line) override {
    MutexLock lock(mutex_);
    lines_.emplace_back(line);
  }
  std::vector<std::string> lines() const {
    MutexLock lock(mutex_);
    return lines_;
  }

 private:
  mutable Mutex mutex_;
  std::vector<std::string> lines_ GUARDED_BY(mutex_);
};

/// Keeps what was logged, at every level.
class SimSystemLog final : public SystemLog {
 public:
  struct Line {
    LogLevel level;
    std::string subsystem;
    std::string category;
    std::string text;
  };

  bool isEnabled(LogLevel) const override { return true; }
  void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) override {
    MutexLock lock(mutex_);
    lines_.push_back({level, std::string(subsystem), std::string(category), std::string(text)});
  }
  std::vector<Line> lines() const {
    MutexLock lock(mutex_);
    return lines_;
  }

 private:
  mutable Mutex mutex_;
  std::vector<Line> lines_ GUARDED_BY(mutex_);
};

}  // namespace quillbeam
