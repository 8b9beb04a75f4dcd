#pragma once

#include <signal.h>

#include <functional>
#include <thread>

#include "platform/Dispatch.h"
#include "platform/linux/posix/FileDescriptor.h"

namespace quillbeam {

/// Delivers SIGINT, SIGTERM and SIGHUP to the main queue as ordinary closures. Made on the main thread before any other
/// thread exists (threads inherit that these signals are blocked), destroyed there; the signals have their former
/// effect again afterwards. A process started meanwhile inherits the blocking: whoever starts one resets it.
class SignalWatcher {
 public:
  using Received = std::function<void(int signal)>;

  /// Only blocks the signals; they wait until `deliver`.
  SignalWatcher();
  ~SignalWatcher();
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

  /// From now on, also for those that came before. Call once. `received` must be good as long as main runs closures.
  void deliver(DispatchQueue& main, Received received);

 private:
  sigset_t before_;
  FileDescriptor signals_;
  FileDescriptor stop_;
  std::thread thread_;
};

}  // namespace quillbeam
