#pragma once

#include <algorithm>
#include <mutex>
#include <vector>

#include "platform/capture/ScreenCapture.h"

namespace quillbeam {

/// What the outputs of a stream were given, in the order in which they ran. Outputs run on several queues.
class RecordedSamples {
 public:
  struct Entry {
    OutputType type;
    SampleBuffer sample;
  };

  void add(OutputType type, const SampleBuffer& sample) {
    const std::lock_guard lock(mutex_);
    entries_.push_back({type, sample});
  }
  std::vector<Entry> all() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  std::vector<SampleBuffer> of(OutputType type) const {
    std::vector<SampleBuffer> samples;
    for (const auto& entry : all()) {
      if (entry.type == type) samples.push_back(entry.sample);
    }
    return samples;
  }
  std::size_t count(OutputType type) const { return of(type).size(); }

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

/// An output that records and answers as it is told.
class RecordingOutput final : public StreamOutput {
 public:
  explicit RecordingOutput(RecordedSamples& samples) : samples_(samples) {}

  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override {
    samples_.add(type, sample);
    return answer;
  }

  SampleDisposition answer = SampleDisposition::taken;

 private:
  RecordedSamples& samples_;
};

/// Blocks meet to the sample (to the nanosecond, that is).
inline bool areContiguous(const std::vector<SampleBuffer>& blocks) {
  return std::ranges::adjacent_find(blocks, [](const SampleBuffer& a, const SampleBuffer& b) {
           const auto gap = b.presentationTime() - (a.presentationTime() + a.duration());
           return gap > MediaTime::nanoseconds(2) || gap < MediaTime::nanoseconds(-2);
         }) == blocks.end();
}

inline bool areInTimeOrder(const std::vector<RecordedSamples::Entry>& entries) {
  return std::ranges::is_sorted(entries, {}, [](const auto& entry) { return entry.sample.presentationTime(); });
}

}  // namespace quillbeam
