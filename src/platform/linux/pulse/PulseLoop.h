#pragma once

#include <pulse/thread-mainloop.h>

#include "base/ThreadAnnotations.h"

namespace quillbeam {

/// The sound server library's thread and the lock over everything that belongs to it. The lock is held during every
/// callback of the library; from any other thread a `PulseLock` takes it, never across a wait.
class LOCK_CAPABILITY PulseLoop {
 public:
  PulseLoop();
  /// Ends the thread. Contexts and streams of the loop are gone by then.
  ~PulseLoop();
  PulseLoop(const PulseLoop&) = delete;
  PulseLoop& operator=(const PulseLoop&) = delete;

  void lock() ACQUIRES() { pa_threaded_mainloop_lock(loop_); }
  void unlock() RELEASES() { pa_threaded_mainloop_unlock(loop_); }
  /// For callbacks of the library, which run under the lock: on the loop's thread, or inside a call into the library.
  void assertHeld() const ASSERTS_QUEUE(this) {}
  pa_mainloop_api* api() { return pa_threaded_mainloop_get_api(loop_); }

 private:
  pa_threaded_mainloop* loop_;
};

class SCOPED_LOCK PulseLock {
 public:
  explicit PulseLock(PulseLoop& loop) ACQUIRES(loop) : loop_(loop) { loop_.lock(); }
  ~PulseLock() RELEASES() { loop_.unlock(); }
  PulseLock(const PulseLock&) = delete;
  PulseLock& operator=(const PulseLock&) = delete;

 private:
  PulseLoop& loop_;
};

}  // namespace quillbeam
