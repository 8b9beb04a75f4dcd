#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// Loudness of one source since it was last asked: peak of the absolute sample values, 0…1.
class LevelMeter {
 public:
  void add(const AudioBlock& block) {
    float peak = peak_.load(std::memory_order_relaxed);
    for (const float sample : block.samples) peak = std::max(peak, sample < 0 ? -sample : sample);
    peak_.store(peak, std::memory_order_relaxed);
  }
  float take() { return peak_.exchange(0, std::memory_order_relaxed); }

 private:
  std::atomic<float> peak_ = 0;
};

/// Running figures of a recording, written by the receivers on their queues, read by anyone.
struct RecordingStatistics {
  std::atomic<std::int64_t> videoFrames = 0;           ///< appended to the file and within its session
  std::atomic<std::int64_t> droppedByWriter = 0;       ///< complete pictures that found the writer busy or failed
  std::atomic<std::int64_t> lastVideoNanoseconds = 0;  ///< on the recording's timeline
  LevelMeter systemAudio;
  LevelMeter microphone;
};

}  // namespace quillbeam
