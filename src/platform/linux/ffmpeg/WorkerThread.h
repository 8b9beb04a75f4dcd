#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "platform/linux/ffmpeg/WorkSignal.h"

namespace quillbeam {

/// A thread that repeats a step while it finds work, sleeps on its signal when it does not, and ends when the step says
/// so or when it is stopped.
class WorkerThread {
 public:
  enum class Outcome { worked, idle, finished };
  using Step = std::function<Outcome()>;

  WorkerThread() = default;
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;
  ~WorkerThread() { stop(); }

  WorkSignal& signal() { return signal_; }
  /// Once. `name` shows in process listings, at most 15 characters.
  void start(const char* name, Step step);
  /// Waits for the step that is running. Does nothing when the thread is not running.
  void stop();

 private:
  WorkSignal signal_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace quillbeam
