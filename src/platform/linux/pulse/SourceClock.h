#pragma once

#include <cstdint>

namespace quillbeam {

/// Learns when the frames of one sound source happened on the host clock.
///
/// A source counts frames at a crystal of its own (some hundred ppm off), and what says when a frame happened is noisy:
/// milliseconds of jitter, now and then far off. The clock is a two-state Kalman filter over those stamps: how far the
/// source is behind its nominal rate (offset) and how fast that grows (drift). It trusts the first stamps fully and
/// averages over several seconds later on. A value without queue; frames are counted from the source's beginning.
class SourceClock {
 public:
  /// Frame 0 happened at `firstFrameTime` (host clock, nanoseconds); `drift` is what is known of the source from
  /// before.
  SourceClock(int sampleRate, std::int64_t firstFrameTime, double drift = 0);

  /// How much later (seconds) than expected a stamp says that the frame happened.
  double surprise(std::int64_t frame, std::int64_t hostTime) const;
  /// Takes a stamp into account. Frames rise from call to call.
  void learn(std::int64_t frame, std::int64_t hostTime);

  /// When a frame happened: seconds since frame 0's stamp.
  double secondsAt(double frame) const;
  std::int64_t firstFrameTime() const { return firstFrameTime_; }
  /// Host seconds gained per source second: positive for a source that runs slow.
  double drift() const { return drift_; }

 private:
  void advanceTo(std::int64_t frame);

  double sampleRate_;
  std::int64_t firstFrameTime_;
  std::int64_t frame_ = 0;  ///< the frame that the state stands for
  double offset_ = 0;       ///< seconds that frame happened later than nominally
  double drift_;
  double offsetVariance_;
  double covariance_ = 0;
  double driftVariance_;
};

}  // namespace quillbeam
