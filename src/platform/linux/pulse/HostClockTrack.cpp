#include "platform/linux/pulse/HostClockTrack.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

namespace quillbeam {

namespace {

constexpr int ringFrames = 3 * HostClockTrack::sampleRate;
constexpr double jump = 0.060;             ///< seconds
constexpr double doubtBeforeJump = 0.300;  ///< seconds of sound
constexpr double correctionTime = 2.0;     ///< seconds in which a small error is worn down to a third
constexpr double largestCorrection = 0.002;

}  // namespace

HostClockTrack::HostClockTrack(MediaTime start)
    : timeline_(start.rescaled(sampleRate).value(), ringFrames), nextFrame_(timeline_.readPosition()) {}

void HostClockTrack::write(const CapturedSound& sound) {
  const auto frames = static_cast<std::int64_t>(sound.samples.size()) / channels;
  const bool continues = sound.continuity == Continuity::continues && piece_ && piece_->sourceRate == sound.sampleRate;
  if (!continues) {
    endPiece();
    if (!sound.hostTime) return;
    beginPiece(sound.sampleRate, *sound.hostTime, 0);
  } else if (sound.hostTime) {
    weighStamp(*sound.hostTime);
  }
  piece_->resampler.push(sound.samples);
  piece_->framesTaken += frames;
  place();
}

void HostClockTrack::weighStamp(std::int64_t hostTime) {
  const double surprise = piece_->clock.surprise(piece_->framesTaken, hostTime);
  if (std::abs(surprise) <= jump) {
    doubt_ = {};
    piece_->clock.learn(piece_->framesTaken, hostTime);
    return;
  }
  if (doubt_.stamps == 0 || doubt_.surpriseSum * surprise < 0) doubt_ = {.since = piece_->framesTaken};
  ++doubt_.stamps;
  doubt_.surpriseSum += surprise;
  const auto doubted = static_cast<double>(piece_->framesTaken - doubt_.since) / piece_->sourceRate;
  if (!ranDry() && doubted < doubtBeforeJump) return;
  const double believed = surprise - doubt_.surpriseSum / doubt_.stamps;
  const auto jumpedTo = hostTime - static_cast<std::int64_t>(believed * 1e9);
  const int sourceRate = piece_->sourceRate;
  const double drift = piece_->clock.drift();
  endPiece();
  beginPiece(sourceRate, jumpedTo, drift);
}

void HostClockTrack::beginPiece(int sourceRate, std::int64_t hostTime, double drift) {
  const std::int64_t first = MediaTime::nanoseconds(hostTime).rescaled(sampleRate).value();
  // Nothing is placed where something was placed or read before: the piece loses its beginning instead.
  nextFrame_ = std::max({first, nextFrame_, timeline_.readPosition()});
  const double position = std::max(secondsOf(nextFrame_, hostTime), 0.0) * sourceRate;
  piece_.emplace(SourceClock(sourceRate, hostTime, drift), FractionalResampler(position), sourceRate);
  doubt_ = {};
  timeline_.beginPiece();
}

void HostClockTrack::endPiece() {
  if (!piece_) return;
  piece_->resampler.pushSilentTail();
  place();
  piece_.reset();
  // A piece that was stamped far into the future was not kept there and must not bar the way for the next one.
  nextFrame_ = std::min(nextFrame_, timeline_.readPosition() + ringFrames);
}

double HostClockTrack::secondsOf(std::int64_t frame, std::int64_t sinceHostTime) const {
  const std::int64_t nanoseconds = MediaTime(frame, sampleRate).rescaled(1'000'000'000).value() - sinceHostTime;
  return static_cast<double>(nanoseconds) * 1e-9;
}

double HostClockTrack::step() const {
  const SourceClock& clock = piece_->clock;
  const double position = static_cast<double>(piece_->framesTaken) - piece_->resampler.framesAhead();
  const double behind = secondsOf(nextFrame_, clock.firstFrameTime()) - clock.secondsAt(position);
  const double correction = std::clamp(behind / correctionTime, -largestCorrection, largestCorrection);
  return piece_->sourceRate / static_cast<double>(sampleRate) / (1 + clock.drift()) * (1 + correction);
}

void HostClockTrack::place() {
  resampled_.clear();
  piece_->resampler.produce(step(), resampled_);
  timeline_.write(nextFrame_, resampled_);
  nextFrame_ += static_cast<std::int64_t>(resampled_.size()) / channels;
}

std::vector<SampleBuffer> HostClockTrack::readUntil(MediaTime hostTime) {
  std::vector<SampleBuffer> blocks;
  for (;;) {
    const std::int64_t begin = timeline_.readPosition();
    if (MediaTime(begin + framesPerBlock, sampleRate) > hostTime) return blocks;
    auto block = std::make_shared<AudioBlock>();
    block->sampleRate = sampleRate;
    block->channels = channels;
    block->samples.resize(framesPerBlock * channels);
    timeline_.read(block->samples);
    blocks.push_back(SampleBuffer::audio(std::move(block), MediaTime(begin, sampleRate)));
  }
}

}  // namespace quillbeam
