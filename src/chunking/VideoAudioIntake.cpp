#include "chunking/VideoAudioIntake.h"

#include <algorithm>
#include <utility>

#include "base/Text.h"
#include "chunking/MixTimeline.h"
#include "chunking/MonoSamples.h"

namespace quillbeam {

namespace {

constexpr std::size_t maxAudioQueueChunks = 1000;
constexpr std::size_t maxPendingAudioBuffers = 500;
const MediaTime shortestLead{1, 100};

}  // namespace

VideoAudioIntake::VideoAudioIntake(Dispatch& dispatch, const Logger& logger, AudioSources sources)
    : logger_(logger), mixerQueue_(dispatch.makeSerialQueue("video.audio.mixer.queue")) {
  mixer_ = std::make_unique<AudioMixer>(*mixerQueue_, sources);
}

void VideoAudioIntake::append(SampleBuffer sample, AudioSource source) {
  mixerQueue_->async([this, sample = std::move(sample), source]() mutable { enqueue(std::move(sample), source); });
}

void VideoAudioIntake::begin(MediaTime baseline, AssetWriterInput& output) {
  mixerQueue_->async([this, baseline, &output] {
    mixerQueue_->assertCurrent();
    baseline_ = baseline;
    output_ = &output;
    flushPending();
  });
}

Task<void> VideoAudioIntake::finish() {
  auto work = [this]() -> Result<void> {
    mixerQueue_->assertCurrent();
    pending_.clear();
    if (output_ != nullptr) mixer_->drainAll(*output_);
    isFinished_ = true;
    publishBacklog();
    return success;
  };
  co_return co_await runOn<void>(*mixerQueue_, work);
}

void VideoAudioIntake::enqueue(SampleBuffer sample, AudioSource source) {
  mixerQueue_->assertCurrent();
  if (isFinished_ || !sample.isValid()) return;
  if (!baseline_) {
    keepForLater(std::move(sample), source);
  } else {
    process(sample, source);
    mixer_->drain(*output_);
  }
  publishBacklog();
}

void VideoAudioIntake::keepForLater(SampleBuffer sample, AudioSource source) {
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

void VideoAudioIntake::flushPending() {
  mixerQueue_->assertCurrent();
  const auto waiting = std::exchange(pending_, {});
  logger_.info("Flushing " + std::to_string(waiting.size()) +
               " queued audio buffers after establishing video baseline");
  for (const Pending& pending : waiting) process(pending.sample, pending.source);
  mixer_->drain(*output_);
  publishBacklog();
}

void VideoAudioIntake::process(const SampleBuffer& sample, AudioSource source) {
  mixerQueue_->assertCurrent();
  const std::int64_t lead = resolvedLead(source, sample.presentationTime());
  auto samples = mixSamples(sample);
  if (!samples) {
    return logger_.error("Failed to extract PCM from " + std::string(toText(source)) + " audio sample; dropping");
  }
  AudioChunk chunk{.data = *std::move(samples)};
  chunk.startFrame = lead + nearestFrames(*baseline_, sample.presentationTime());
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
  limit(source);
  mixer_->queue(source).append(std::move(chunk));
}

std::int64_t VideoAudioIntake::resolvedLead(AudioSource source, MediaTime presentationTime) {
  mixerQueue_->assertCurrent();
  Lead& lead = source == AudioSource::system ? systemLead_ : micLead_;
  if (std::exchange(lead.isResolved, true) || *baseline_ - presentationTime <= shortestLead) return lead.frames;
  lead.frames = nearestFrames(presentationTime, *baseline_);
  logger_.info("Applying " + std::string(toText(source)) +
               " audio lead offset: " + fixedPoint(static_cast<double>(lead.frames) / mixSampleRate, 6) + "s");
  return lead.frames;
}

void VideoAudioIntake::limit(AudioSource source) {
  mixerQueue_->assertCurrent();
  const std::size_t dropped = mixer_->queue(source).keepNewest(maxAudioQueueChunks - 1);
  if (dropped == 0) return;
  warnOfOverflow("⚠️ " + std::string(source == AudioSource::system ? "System" : "Mic") +
                 " audio queue overflow - dropped " + std::to_string(dropped) + " oldest chunks to prevent OOM");
}

void VideoAudioIntake::warnOfOverflow(const std::string& text) {
  mixerQueue_->assertCurrent();
  if (!std::exchange(queueOverflowWarningLogged_, true)) logger_.error(text);
}

void VideoAudioIntake::publishBacklog() {
  mixerQueue_->assertCurrent();
  systemBacklog_ = mixer_->queue(AudioSource::system).size();
  micBacklog_ = mixer_->queue(AudioSource::mic).size();
  pendingBacklog_ = pending_.size();
}

VideoAudioIntake::Backlog VideoAudioIntake::backlog() const { return {systemBacklog_, micBacklog_, pendingBacklog_}; }

}  // namespace quillbeam
