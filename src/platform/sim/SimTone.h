#pragma once

#include <cstdint>

#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// A sine of 48 kHz stereo sound, contiguous from its start on: block n begins at start + n × 480 / 48000. At frequency
/// 0 it is silence.
class SimTone {
 public:
  static constexpr int sampleRate = 48'000;
  static constexpr int blockFrames = 480;

  SimTone(double frequency, MediaTime start) : frequency_(frequency), start_(start) {}

  /// When the next block begins and ends.
  MediaTime nextStart() const { return start_ + MediaTime(frames_, sampleRate); }
  MediaTime nextEnd() const { return start_ + MediaTime(frames_ + blockFrames, sampleRate); }
  SampleBuffer nextBlock();

 private:
  double frequency_;
  MediaTime start_;
  std::int64_t frames_ = 0;
};

}  // namespace quillbeam
