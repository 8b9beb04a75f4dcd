#pragma once

#include <atomic>
#include <memory>

#include "platform/Dispatch.h"
#include "platform/linux/posix/QueueCore.h"
#include "platform/linux/posix/ThreadPool.h"
#include "platform/linux/posix/TimerThread.h"

namespace quillbeam {

/// The real queues. The thread that makes it is the main thread. Without a UI the main queue is driven by `runMain`; a
/// UI's event loop watches `mainDescriptor` instead and calls `drainMain` when it is readable. Outside every closure
/// the main thread counts as running on the main queue.
class LinuxDispatch final : public Dispatch {
 public:
  LinuxDispatch();
  /// On the main thread, after every serial queue and timer handle. What still waits on main and global is destroyed
  /// without running.
  ~LinuxDispatch() override;

  DispatchQueue& main() override;
  DispatchQueue& global() override;
  std::unique_ptr<DispatchQueue> makeSerialQueue(std::string_view label) override;
  MediaTime hostTime() const override;
  Date now() const override;

  /// Runs main's closures until `stopMain`; main thread only, not inside a closure.
  void runMain();
  /// Makes `runMain` return after the closures that waited together with the current one. Any thread.
  void stopMain();

  /// Runs main's closures that wait now, and returns. Main thread only.
  void drainMain();
  /// Readable (poll, level-triggered) while closures wait on main.
  int mainDescriptor() const { return mainCore_->pollableDescriptor(); }

  std::size_t poolThreadCount() const { return pool_.threadCount(); }

 private:
  TimerThread timers_;
  ThreadPool pool_;
  std::shared_ptr<MainCore> mainCore_;
  std::unique_ptr<DispatchQueue> main_;
  std::unique_ptr<DispatchQueue> global_;
  std::atomic<bool> stopMain_ = false;
};

}  // namespace quillbeam
