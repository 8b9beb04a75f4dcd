#include "platform/linux/ffmpeg/AudioTrackFeed.h"

#include <algorithm>

namespace quillbeam {

namespace {

/// Between two looks at the other tracks.
constexpr int blocksAtOnce = 32;

}  // namespace

Result<AudioTrackFeed::Progress> AudioTrackFeed::step(const PacketSink& sink) {
  if (ended_) return Progress::none;
  for (int i = 0; i < blocksAtOnce; ++i) {
    const auto sample = blocks_.pop();
    if (sample) {
      TRY_VOID(encode(*sample, sink));
      continue;
    }
    if (!blocks_.isExhausted()) return i > 0 ? Progress::some : Progress::none;
    TRY_VOID(encoder_->drain(sink));
    ended_ = true;
    return Progress::ended;
  }
  return Progress::some;
}

Result<void> AudioTrackFeed::encode(const SampleBuffer& sample, const PacketSink& sink) {
  const AudioBlock& block = *sample.block();
  const MediaTime start = sample.presentationTime();
  const auto framesUntil = [&](MediaTime time) {
    return std::clamp<std::int64_t>((time - start).rescaled(block.sampleRate).value(), 0, block.frames());
  };
  const std::int64_t first = framesUntil(MediaTime::zero());
  const auto end = session_.relativeEnd();
  const std::int64_t last = end ? framesUntil(*end) : block.frames();
  if (first >= last) return success;
  if (first == 0 && last == block.frames()) return encoder_->encode(block, start, sink);
  AudioBlock part{block.sampleRate, block.channels, {}};
  part.samples.assign(block.samples.begin() + first * block.channels, block.samples.begin() + last * block.channels);
  return encoder_->encode(part, start + MediaTime(first, block.sampleRate), sink);
}

Result<void> AudioTrackFeed::encodeLeadingSilence(const PacketSink& sink) {
  // The encoder runs one frame behind, and a packet has no duration before its successor is there.
  const std::int64_t frames = 3 * std::int64_t{encoder_->format().parameters->frame_size};
  return encoder_->encodeSilence(MediaTime(frames, encoder_->format().timescale), sink);
}

}  // namespace quillbeam
