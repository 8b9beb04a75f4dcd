#pragma once

#include <mutex>

#include "base/ThreadAnnotations.h"

namespace quillbeam {

/// std::mutex with thread-safety annotations. For the few places where queues do not fit: real-time edges and the
/// insides of ports. Held for a handful of instructions, never across a call out of the class.
class LOCK_CAPABILITY Mutex {
 public:
  void lock() ACQUIRES() { mutex_.lock(); }
  void unlock() RELEASES() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

class SCOPED_LOCK MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRES(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASES() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace quillbeam
