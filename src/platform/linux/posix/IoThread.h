#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "base/Executor.h"
#include "platform/linux/posix/FileDescriptor.h"

namespace quillbeam {

/// Something with a descriptor that the I/O thread watches.
class IoSource {
 public:
  virtual ~IoSource() = default;
  /// On the I/O thread, with what epoll said.
  virtual void ready(std::uint32_t events) = 0;
};

/// One thread that waits on descriptors. All that touches a watched descriptor happens on it.
class IoThread {
 public:
  IoThread();
  IoThread(const IoThread&) = delete;
  IoThread& operator=(const IoThread&) = delete;
  /// Runs what was handed over, then ends.
  ~IoThread();

  /// Runs `work` on the I/O thread, in the order of the calls. Any thread.
  void perform(Closure work);

  // On the I/O thread only.

  /// Watches the descriptor for these events from now on; no events forget it (epoll would go on reporting hang-ups).
  void watch(int descriptor, std::uint32_t events, const std::shared_ptr<IoSource>& source);

 private:
  void run();
  /// Runs everything that was handed over; false when it is time to end.
  bool runPending();

  FileDescriptor epoll_;
  FileDescriptor wake_;
  std::map<int, std::shared_ptr<IoSource>> sources_;  // I/O thread only
  std::mutex mutex_;                                  // guards the two below
  std::deque<Closure> pending_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace quillbeam
