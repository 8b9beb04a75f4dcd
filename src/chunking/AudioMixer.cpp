#include "chunking/AudioMixer.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "chunking/MixTimeline.h"

namespace quillbeam {

namespace {

constexpr std::int64_t jitterFrames = 4800;
constexpr float systemGain = 0.4F;
constexpr float micGain = 1.0F;

}  // namespace

std::string_view toText(AudioSource source) { return source == AudioSource::system ? "system" : "mic"; }

MixQueue& AudioMixer::queue(AudioSource source) {
  mixerQueue_.assertCurrent();
  return source == AudioSource::system ? system_ : mic_;
}

void AudioMixer::drain(AssetWriterInput& output) {
  mixerQueue_.assertCurrent();
  if (!sources_.any() || !output.isReadyForMoreMediaData()) return;
  // A source that is switched off holds nobody up; one that should deliver does.
  std::int64_t end = INT64_MAX;
  if (sources_.system) end = std::min(end, system_.end(currentMixFrame_));
  if (sources_.mic) end = std::min(end, mic_.end(currentMixFrame_));
  mixUpTo(end - jitterFrames, output);
}

void AudioMixer::drainAll(AssetWriterInput& output) {
  mixerQueue_.assertCurrent();
  mixUpTo(std::max(system_.end(currentMixFrame_), mic_.end(currentMixFrame_)), output);
}

std::int64_t AudioMixer::currentMixFrame() const {
  mixerQueue_.assertCurrent();
  return currentMixFrame_;
}

void AudioMixer::mixUpTo(std::int64_t endFrame, AssetWriterInput& output) {
  mixerQueue_.assertCurrent();
  while (currentMixFrame_ + mixBlockSize <= endFrame) output.append(mixBlock());
}

SampleBuffer AudioMixer::mixBlock() {
  mixerQueue_.assertCurrent();
  auto block = std::make_shared<AudioBlock>(AudioBlock{.sampleRate = mixSampleRate, .channels = 1});
  block->samples.resize(mixBlockSize);
  system_.addInto(block->samples, currentMixFrame_, systemGain);
  mic_.addInto(block->samples, currentMixFrame_, micGain);
  for (float& sample : block->samples) sample = std::clamp(sample, -1.0F, 1.0F);
  const MediaTime time(currentMixFrame_, mixSampleRate);
  currentMixFrame_ += mixBlockSize;
  return SampleBuffer::audio(std::move(block), time);
}

}  // namespace quillbeam
