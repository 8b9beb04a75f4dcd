#include "platform/linux/ffmpeg/SampleQueue.h"

#include <utility>

namespace quillbeam {

bool SampleQueue::push(SampleBuffer sample) {
  {
    MutexLock lock(mutex_);
    if (closed_) return false;
    weight_ += weigh(sample);
    samples_.push_back(std::move(sample));
  }
  consumer_.raise();
  return true;
}

void SampleQueue::close() {
  {
    MutexLock lock(mutex_);
    closed_ = true;
  }
  consumer_.raise();
}

std::optional<SampleBuffer> SampleQueue::pop() {
  MutexLock lock(mutex_);
  if (samples_.empty()) return std::nullopt;
  SampleBuffer sample = std::move(samples_.front());
  samples_.pop_front();
  weight_ -= weigh(sample);
  return sample;
}

bool SampleQueue::isFull() const {
  MutexLock lock(mutex_);
  return weight_ >= capacity_;
}

bool SampleQueue::isExhausted() const {
  MutexLock lock(mutex_);
  return closed_ && samples_.empty();
}

std::int64_t SampleQueue::weigh(const SampleBuffer& sample) const {
  return measure_ == Measure::pictures ? 1 : sample.duration().toNanoseconds().count();
}

}  // namespace quillbeam
