#include "platform/linux/ffmpeg/VideoPipeline.h"

#include <utility>

#include "platform/linux/ffmpeg/BlackPicture.h"

namespace quillbeam {

WorkerThread::Outcome VideoPipeline::step() {
  using Outcome = WorkerThread::Outcome;
  if (output_.isFull()) return Outcome::idle;
  if (const auto sample = pictures_.pop()) {
    auto taken = take(*sample);
    return taken ? Outcome::worked : fail(taken.error());
  }
  if (!pictures_.isExhausted()) {
    auto started = output_.takeStartRequest() ? startTrack() : Result<void>(success);
    return started ? Outcome::idle : fail(started.error());
  }
  output_.close(finish());
  return Outcome::finished;
}

WorkerThread::Outcome VideoPipeline::fail(Error error) {
  output_.close(std::move(error));
  return WorkerThread::Outcome::finished;
}

Result<void> VideoPipeline::startTrack() {
  // A track has started with its second packet, which gives the first one its duration.
  if (packetsOut_ >= 2) return success;
  const std::shared_ptr<const PixelBuffer> picture =
      held_ ? held_->picture() : std::make_shared<const BlackPicture>(encoder_->size());
  const MediaTime tick(1, VideoEncoder::timescale);
  MediaTime time = held_ ? held_->presentationTime().rescaled(tick.timescale()) : MediaTime::zero();
  if (lastEncoded_) time = *lastEncoded_ + tick;
  held_.reset();
  // Two of them stay inside the encoder, one waits for its successor.
  for (int i = 0; i < 4; ++i, time = time + tick) TRY_VOID(encode(picture, time));
  return success;
}

Result<void> VideoPipeline::take(const SampleBuffer& sample) {
  const MediaTime time = sample.presentationTime();
  const auto end = session_.relativeEnd();
  if (time < MediaTime::zero() || (end && time >= *end)) return success;
  TRY_VOID(encodeHeld());
  held_ = sample;
  return success;
}

Result<void> VideoPipeline::encodeHeld() {
  if (!held_) return success;
  const SampleBuffer sample = *std::exchange(held_, std::nullopt);
  return encode(sample.picture(), sample.presentationTime().rescaled(VideoEncoder::timescale));
}

Result<void> VideoPipeline::encode(std::shared_ptr<const PixelBuffer> picture, MediaTime time) {
  // Two captured times may fall on one tick, which can show only one picture.
  if (lastEncoded_ && time <= *lastEncoded_) return success;
  if (lastEncoded_) lastSpacing_ = time - *lastEncoded_;
  lastEncoded_ = time;
  return encoder_->encode(std::move(picture), time.value(), keyFrameAt(time), [this](EncodedPacket packet) {
    ++packetsOut_;
    output_.push(std::move(packet));
  });
}

KeyFrame VideoPipeline::keyFrameAt(MediaTime time) {
  if (!keyFrameInterval_ || time < nextKeyFrame_) return KeyFrame::whenNeeded;
  while (nextKeyFrame_ <= time) nextKeyFrame_ = nextKeyFrame_ + *keyFrameInterval_;
  return KeyFrame::forced;
}

Result<std::optional<MediaTime>> VideoPipeline::finish() {
  const auto end = session_.relativeEnd();
  MediaTime duration = held_ ? held_->duration() : lastSpacing_;
  if (held_ && end && held_->presentationTime() >= *end) held_.reset();
  TRY_VOID(encodeHeld());
  TRY_VOID(encoder_->drain([this](EncodedPacket packet) { output_.push(std::move(packet)); }));
  if (end || !lastEncoded_) return end;
  if (!duration.isValid() || duration <= MediaTime::zero()) duration = lastSpacing_;
  return std::optional(*lastEncoded_ + duration);
}

}  // namespace quillbeam
