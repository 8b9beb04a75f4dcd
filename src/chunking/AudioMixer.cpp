#include "chunking/AudioMixer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/Text.h"
#include "chunking/MonoSamples.h"

namespace quillbeam {

namespace {

constexpr std::int32_t mixRate = 48'000;
constexpr std::int64_t jitterFrames = 4800;
constexpr float systemGain = 0.4F;
constexpr float micGain = 1.0F;
constexpr std::size_t maxAudioQueueChunks = 1000;
constexpr std::size_t maxPendingAudioBuffers = 500;
const MediaTime shortestLead{1, 100};

/// Rounded once, from the exact difference (halves away from zero): buffers that are contiguous on their own clock stay
/// so on the mix's, whatever clock the baseline was read from.
std::int64_t framesBetween(MediaTime from, MediaTime to) {
  using Wide = __int128;
  const Wide scale = static_cast<Wide>(from.timescale()) * to.timescale();
  const Wide ticks =
      static_cast<Wide>(to.value()) * from.timescale() - static_cast<Wide>(from.value()) * to.timescale();
  const Wide frames = ticks * mixRate;
  return static_cast<std::int64_t>((frames + (frames < 0 ? -scale : scale) / 2) / scale);
}

}  // namespace

std::string_view toText(AudioSource source) { return source == AudioSource::system ? "system" : "mic"; }

AudioMixer::AudioMixer(Dispatch& dispatch, const Logger& logger, std::string_view queueLabel, AudioSources sources)
    : logger_(logger),
      system_{.delivers = sources.system},
      mic_{.delivers = sources.mic},
      mixerQueue_(dispatch.makeSerialQueue(queueLabel)) {}

AudioMixer::Source& AudioMixer::state(AudioSource source) {
  mixerQueue_->assertCurrent();
  return source == AudioSource::system ? system_ : mic_;
}

void AudioMixer::append(SampleBuffer sample, AudioSource source) {
  mixerQueue_->async([this, sample = std::move(sample), source]() mutable { enqueue(std::move(sample), source); });
}

void AudioMixer::begin(MediaTime baseline, AssetWriterInput& output) {
  mixerQueue_->async([this, baseline, &output] {
    mixerQueue_->assertCurrent();
    baseline_ = baseline;
    output_ = &output;
    flushPending();
  });
}

Task<void> AudioMixer::finish() {
  auto work = [this]() -> Result<void> {
    mixerQueue_->assertCurrent();
    pending_.clear();
    if (output_ != nullptr) mixUpTo(std::max(system_.queue.end(currentMixFrame_), mic_.queue.end(currentMixFrame_)));
    isFinished_ = true;
    publishBacklog();
    return success;
  };
  co_return co_await runOn<void>(*mixerQueue_, work);
}

void AudioMixer::enqueue(SampleBuffer sample, AudioSource source) {
  mixerQueue_->assertCurrent();
  if (isFinished_ || !sample.isValid()) return;
  if (!baseline_) {
    keepForLater(std::move(sample), source);
  } else {
    process(sample, source);
    drain();
  }
  publishBacklog();
}

void AudioMixer::keepForLater(SampleBuffer sample, AudioSource source) {
  mixerQueue_->assertCurrent();
  std::size_t dropped = 0;
  for (; pending_.size() >= maxPendingAudioBuffers; ++dropped) pending_.pop_front();
  if (dropped > 0) {
    warnOfOverflow("⚠️ Pending audio buffer overflow - dropped " + std::to_string(dropped) +
                   " oldest samples waiting for video baseline");
  }
  if (!std::exchange(hasQueuedFirst_, true)) {
    logger_.info("Queued first " + std::string(toText(source)) + " audio sample at " +
                 fixedPoint(sample.presentationTime().seconds(), 6) + " seconds; waiting for video baseline");
  }
  pending_.push_back({std::move(sample), source});
}

void AudioMixer::flushPending() {
  mixerQueue_->assertCurrent();
  const auto waiting = std::exchange(pending_, {});
  logger_.info("Flushing " + std::to_string(waiting.size()) +
               " queued audio buffers after establishing video baseline");
  for (const Pending& pending : waiting) process(pending.sample, pending.source);
  drain();
  publishBacklog();
}

void AudioMixer::process(const SampleBuffer& sample, AudioSource source) {
  mixerQueue_->assertCurrent();
  Source& own = state(source);
  resolveLead(own, source, sample.presentationTime());
  if (!sample.block() || sample.block()->channels < 1) {
    logger_.error("Failed to extract PCM from " + std::string(toText(source)) + " audio sample; dropping");
    return;
  }
  AudioChunk chunk{.data = resampledTo48k(monoSamples(*sample.block()), sample.block()->sampleRate)};
  chunk.startFrame = own.leadFrames + framesBetween(*baseline_, sample.presentationTime());
  if (chunk.startFrame < 0) {
    const std::int64_t trimmed = std::min(-chunk.startFrame, chunk.frameCount());
    logger_.debug([&] {
      return "Trimmed " + std::to_string(trimmed) + " frames of leading " + std::string(toText(source)) +
             " audio to align with baseline";
    });
    chunk.data.erase(chunk.data.begin(), chunk.data.begin() + trimmed);
    chunk.startFrame = 0;
  }
  if (chunk.data.empty()) return;
  limit(own, source);
  own.queue.append(std::move(chunk));
}

void AudioMixer::resolveLead(Source& own, AudioSource source, MediaTime presentationTime) {
  mixerQueue_->assertCurrent();
  if (std::exchange(own.leadResolved, true)) return;
  if (*baseline_ - presentationTime <= shortestLead) return;
  own.leadFrames = framesBetween(presentationTime, *baseline_);
  logger_.info("Applying " + std::string(toText(source)) +
               " audio lead offset: " + fixedPoint(static_cast<double>(own.leadFrames) / mixRate, 6) + "s");
}

void AudioMixer::limit(Source& own, AudioSource source) {
  mixerQueue_->assertCurrent();
  const std::size_t dropped = own.queue.keepNewest(maxAudioQueueChunks - 1);
  if (dropped == 0) return;
  warnOfOverflow("⚠️ " + std::string(source == AudioSource::system ? "System" : "Mic") +
                 " audio queue overflow - dropped " + std::to_string(dropped) + " oldest chunks to prevent OOM");
}

void AudioMixer::warnOfOverflow(const std::string& text) {
  mixerQueue_->assertCurrent();
  if (!std::exchange(queueOverflowWarningLogged_, true)) logger_.error(text);
}

void AudioMixer::drain() {
  mixerQueue_->assertCurrent();
  if (output_ == nullptr || !output_->isReadyForMoreMediaData()) return;
  // A source that is switched off holds nobody up; one that should deliver does.
  std::optional<std::int64_t> end;
  for (const Source* source : {&system_, &mic_}) {
    if (source->delivers) end = std::min(end.value_or(INT64_MAX), source->queue.end(currentMixFrame_));
  }
  if (end) mixUpTo(*end - jitterFrames);
}

void AudioMixer::mixUpTo(std::int64_t endFrame) {
  mixerQueue_->assertCurrent();
  while (currentMixFrame_ + mixBlockSize <= endFrame) mixBlock();
}

void AudioMixer::mixBlock() {
  mixerQueue_->assertCurrent();
  auto block = std::make_shared<AudioBlock>(AudioBlock{.sampleRate = mixRate, .channels = 1});
  block->samples.resize(mixBlockSize);
  system_.queue.addInto(block->samples, currentMixFrame_, systemGain);
  mic_.queue.addInto(block->samples, currentMixFrame_, micGain);
  for (float& sample : block->samples) sample = std::clamp(sample, -1.0F, 1.0F);
  output_->append(SampleBuffer::audio(std::move(block), MediaTime(currentMixFrame_, mixRate)));
  currentMixFrame_ += mixBlockSize;
}

void AudioMixer::publishBacklog() {
  mixerQueue_->assertCurrent();
  systemBacklog_ = system_.queue.size();
  micBacklog_ = mic_.queue.size();
  pendingBacklog_ = pending_.size();
}

AudioMixer::Backlog AudioMixer::backlog() const { return {systemBacklog_, micBacklog_, pendingBacklog_}; }

}  // namespace quillbeam
