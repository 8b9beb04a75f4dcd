#include "recording/AudioOnlyStreamOutput.h"

namespace quillbeam {

namespace {

constexpr AudioOnlyTrackWriter::Texts texts{
    .firstSample = "🎯 AudioOnlyStreamOutput: First sample time set and session start requested",
    .sessionNotStarted = "🎯 AudioOnlyStreamOutput: Dropping sample - asset writer session not started yet"};

}  // namespace

SampleDisposition AudioOnlyStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  if (type != OutputType::audio) return SampleDisposition::ignored;
  return track_.write(sample, texts);
}

void AudioOnlyStreamOutput::finalizeRecording() {
  track_.summarize("🎯 AudioOnlyStreamOutput: Final audio time: ",
                   "🎯 AudioOnlyStreamOutput: No audio samples captured");
}

}  // namespace quillbeam
