#pragma once

#include <deque>
#include <optional>

#include "base/Mutex.h"
#include "platform/linux/ffmpeg/WorkSignal.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// Samples between the queue that captures them and the thread that encodes them. It says when it is full and takes
/// more all the same: whoever feeds it decides what to drop, before anything is encoded. Any thread.
class SampleQueue {
 public:
  enum class Measure { pictures, nanoseconds };

  /// Full at `capacity`, counted in pictures or in nanoseconds of sound. `consumer` is raised when there is work.
  SampleQueue(Measure measure, std::int64_t capacity, WorkSignal& consumer)
      : measure_(measure), capacity_(capacity), consumer_(consumer) {}

  /// False once the queue is closed.
  bool push(SampleBuffer sample);
  /// Nothing more comes in; what is inside can still be taken.
  void close();
  std::optional<SampleBuffer> pop();

  bool isFull() const;
  /// Closed and empty.
  bool isExhausted() const;

 private:
  std::int64_t weigh(const SampleBuffer& sample) const;

  const Measure measure_;
  const std::int64_t capacity_;
  WorkSignal& consumer_;
  mutable Mutex mutex_;
  std::deque<SampleBuffer> samples_ GUARDED_BY(mutex_);
  std::int64_t weight_ GUARDED_BY(mutex_) = 0;
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace quillbeam
