#include "platform/linux/pulse/SourceClock.h"

#include <algorithm>

namespace quillbeam {

namespace {

// Stamps scatter by some 4 ms on a bad machine; crystals are within 200 ppm and wander by far less than 1 ppm a
// second. The drift's random walk sets how long the clock averages: these figures make it some ten seconds at 100
// stamps a second, half a minute at one every 1.5 s.
constexpr double stampVariance = 4e-3 * 4e-3;
constexpr double driftUncertainty = 200e-6 * 200e-6;
constexpr double driftWalkPerSecond = 6e-6 * 6e-6;
constexpr double largestDrift = 1000e-6;

}  // namespace

SourceClock::SourceClock(int sampleRate, std::int64_t firstFrameTime, double drift)
    : sampleRate_(sampleRate),
      firstFrameTime_(firstFrameTime),
      drift_(drift),
      offsetVariance_(stampVariance),
      driftVariance_(driftUncertainty) {}

double SourceClock::secondsAt(double frame) const {
  const double sinceState = (frame - static_cast<double>(frame_)) / sampleRate_;
  return frame / sampleRate_ + offset_ + drift_ * sinceState;
}

double SourceClock::surprise(std::int64_t frame, std::int64_t hostTime) const {
  return static_cast<double>(hostTime - firstFrameTime_) * 1e-9 - secondsAt(static_cast<double>(frame));
}

void SourceClock::learn(std::int64_t frame, std::int64_t hostTime) {
  const double error = surprise(frame, hostTime);
  advanceTo(frame);
  const double offsetGain = offsetVariance_ / (offsetVariance_ + stampVariance);
  const double driftGain = covariance_ / (offsetVariance_ + stampVariance);
  offset_ += offsetGain * error;
  drift_ = std::clamp(drift_ + driftGain * error, -largestDrift, largestDrift);
  driftVariance_ -= driftGain * covariance_;
  covariance_ *= 1 - offsetGain;
  offsetVariance_ *= 1 - offsetGain;
}

void SourceClock::advanceTo(std::int64_t frame) {
  const double seconds = static_cast<double>(frame - frame_) / sampleRate_;
  offset_ += drift_ * seconds;
  offsetVariance_ += seconds * (2 * covariance_ + seconds * driftVariance_);
  covariance_ += seconds * driftVariance_;
  driftVariance_ += driftWalkPerSecond * seconds;
  frame_ = frame;
}

}  // namespace quillbeam
