#include "platform/linux/pulse/SoundTimeline.h"

#include <algorithm>
#include <cstddef>

namespace quillbeam {

namespace {

constexpr std::int64_t channels = 2;
constexpr std::int64_t glideFrames = 128;

std::int64_t framesIn(std::span<const float> samples) { return static_cast<std::int64_t>(samples.size()) / channels; }

template <class Sample>
std::span<Sample> framesFrom(std::span<Sample> samples, std::int64_t first) {
  return samples.subspan(static_cast<std::size_t>(first * channels));
}

}  // namespace

SoundTimeline::SoundTimeline(std::int64_t begin, int capacity)
    : ring_(static_cast<std::size_t>(capacity * channels)),
      capacity_(capacity),
      readPosition_(begin),
      glided_(glideFrames) {}

std::span<float> SoundTimeline::slots(std::int64_t position, std::int64_t frames) {
  const std::int64_t first = position % capacity_;
  const std::int64_t count = std::min(frames, capacity_ - first);
  return framesFrom(std::span(ring_), first).first(static_cast<std::size_t>(count * channels));
}

void SoundTimeline::write(std::int64_t position, std::span<const float> samples) {
  const std::int64_t begin = std::max(position, readPosition_);
  const std::int64_t end = std::min(position + framesIn(samples), readPosition_ + capacity_);
  if (begin >= end) return;
  for (std::int64_t at = begin; at < end;) {
    const auto target = slots(at, end - at);
    std::ranges::copy(framesFrom(samples, at - position).first(target.size()), target.begin());
    at += framesIn(target);
  }
  if (!written_.empty() && written_.back().end == begin && written_.back().piece == piece_) {
    written_.back().end = end;
  } else {
    written_.push_back({begin, end, piece_});
  }
}

void SoundTimeline::read(std::span<float> samples) {
  while (!samples.empty()) {
    const Stretch stretch = stretchAhead(framesIn(samples));
    const auto part = samples.first(static_cast<std::size_t>(stretch.frames * channels));
    if (stretch.piece == silence) {
      std::ranges::fill(part, 0.0F);
    } else {
      copyOut(part);
    }
    if (stretch.piece != reading_) {
      reading_ = stretch.piece;
      glideFrom_ = lastFrame_;
      glided_ = 0;
    }
    glideAcrossEdge(part);
    lastFrame_ = {part[part.size() - 2], part[part.size() - 1]};
    readPosition_ += stretch.frames;
    samples = framesFrom(samples, stretch.frames);
  }
}

SoundTimeline::Stretch SoundTimeline::stretchAhead(std::int64_t frames) {
  while (!written_.empty() && written_.front().end <= readPosition_) written_.pop_front();
  if (written_.empty()) return {silence, frames};
  const Span& next = written_.front();
  if (next.begin > readPosition_) return {silence, std::min(frames, next.begin - readPosition_)};
  return {next.piece, std::min(frames, next.end - readPosition_)};
}

void SoundTimeline::copyOut(std::span<float> samples) {
  for (std::int64_t at = 0; at < framesIn(samples);) {
    const auto source = slots(readPosition_ + at, framesIn(samples) - at);
    std::ranges::copy(source, framesFrom(samples, at).begin());
    at += framesIn(source);
  }
}

void SoundTimeline::glideAcrossEdge(std::span<float> samples) {
  for (std::int64_t at = 0; at < framesIn(samples) && glided_ < glideFrames; ++at, ++glided_) {
    const float share = static_cast<float>(glided_) / glideFrames;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      float& sample = samples[static_cast<std::size_t>(at * channels) + channel];
      sample = share * sample + (1 - share) * glideFrom_[channel];
    }
  }
}

}  // namespace quillbeam
