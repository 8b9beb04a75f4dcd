#include "recording/AudioStreamOutput.h"

namespace quillbeam {

namespace {

constexpr SoundTrackTexts texts{.receiver = "AudioStreamOutput",
                                .input = "audioInput",
                                .lead = "system audio",
                                .early = "audio",
                                .samples = "audio samples",
                                .final = "audio"};
constexpr std::string_view leadLinePrefix = "🎯 AudioStreamOutput";
constexpr std::string_view sessionNotStarted =
    "🎯 AudioStreamOutput: Dropping sample - asset writer session not started yet";
constexpr std::string_view sessionNotStartedOnRetry =
    "🎯 AudioStreamOutput: Dropping retry sample - asset writer session not started yet";
constexpr Duration retryDelay = std::chrono::milliseconds(1);
constexpr int fewSamples = 9;

}  // namespace

AudioStreamOutput::AudioStreamOutput(const SoundTrackWriter::Parts& parts)
    : queue_(parts.queue), track_(parts, texts) {}

SampleDisposition AudioStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  queue_.assertCurrent();
  if (type != OutputType::audio || !track_.accepts(sample)) return SampleDisposition::ignored;
  if (track_.waitsForVideo()) return SampleDisposition::ignored;
  const MediaTime place = track_.place(sample, leadLinePrefix);
  if (!track_.isReady()) {
    scheduleRetry(sample, place);
    return SampleDisposition::taken;
  }
  if (!track_.writerSessionStarted(sessionNotStarted)) return SampleDisposition::ignored;
  track_.write(sample, place, SoundTrackWriter::Attempt::first);
  return SampleDisposition::taken;
}

void AudioStreamOutput::scheduleRetry(const SampleBuffer& sample, MediaTime place) {
  const std::uint64_t id = nextRetry_++;
  retries_[id] = queue_.after(retryDelay, weakly(this, [sample, place, id](AudioStreamOutput& self) {
                                self.queue_.assertCurrent();
                                const auto spent = self.retries_.extract(id);
                                self.retry(sample, place);
                              }));
}

void AudioStreamOutput::retry(const SampleBuffer& sample, MediaTime place) {
  if (!track_.writerSessionStarted(sessionNotStartedOnRetry)) return;
  if (!track_.isReady()) return track_.print("Audio input still not ready after retry, dropping frame");
  const auto outcome = track_.write(sample, place, SoundTrackWriter::Attempt::retry);
  if (outcome == SoundTrackWriter::Outcome::appended) track_.print("Retried successfully after brief delay");
}

void AudioStreamOutput::finalizeRecording() { track_.summarize(fewSamples); }

void AudioStreamOutput::cancelRetries() {
  queue_.assertCurrent();
  retries_.clear();
}

}  // namespace quillbeam
