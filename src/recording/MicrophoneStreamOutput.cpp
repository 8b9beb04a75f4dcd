#include "recording/MicrophoneStreamOutput.h"

namespace quillbeam {

namespace {

constexpr SoundTrackTexts texts{.receiver = "MicrophoneStreamOutput",
                                .input = "microphoneInput",
                                .lead = "mic audio",
                                .early = "mic",
                                .samples = "microphone samples",
                                .final = "microphone"};
constexpr int fewSamples = 9;

}  // namespace

const MicrophoneStreamOutput::Origin MicrophoneStreamOutput::stream{
    .leadLinePrefix = "🎯 MicrophoneStreamOutput",
    .sessionNotStarted = "🎯 MicrophoneStreamOutput: Dropping sample - asset writer session not started yet"};

const MicrophoneStreamOutput::Origin MicrophoneStreamOutput::captureDevice{
    .leadLinePrefix = "🎤 AVCapture MicrophoneStreamOutput",
    .sessionNotStarted =
        "🎯 MicrophoneStreamOutput (AVCapture): Dropping sample - asset writer session not started yet"};

MicrophoneStreamOutput::MicrophoneStreamOutput(const SoundTrackWriter::Parts& parts, SystemVersion systemVersion)
    : queue_(parts.queue), out_(parts.out), systemVersion_(systemVersion), track_(parts, texts) {}

SampleDisposition MicrophoneStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  queue_.assertCurrent();
  if (systemVersion_ < streamCapturesMicrophone) {
    out_.print("⚠️ MicrophoneStreamOutput: macOS 15.0+ required for microphone capture");
    return SampleDisposition::ignored;
  }
  if (type != OutputType::microphone) return SampleDisposition::ignored;
  return handle(sample, stream);
}

SampleDisposition MicrophoneStreamOutput::handleAVCaptureSample(const SampleBuffer& sample) {
  queue_.assertCurrent();
  return handle(sample, captureDevice);
}

SampleDisposition MicrophoneStreamOutput::handle(const SampleBuffer& sample, const Origin& origin) {
  if (!track_.accepts(sample)) return SampleDisposition::ignored;
  if (!track_.isReady()) {
    track_.print("Microphone input not ready, dropping frame");
    return SampleDisposition::ignored;
  }
  if (track_.waitsForVideo()) return SampleDisposition::ignored;
  const MediaTime place = track_.place(sample, origin.leadLinePrefix);
  if (!track_.writerSessionStarted(origin.sessionNotStarted)) return SampleDisposition::ignored;
  track_.write(sample, place, SoundTrackWriter::Attempt::first);
  return SampleDisposition::taken;
}

void MicrophoneStreamOutput::finalizeRecording() { track_.summarize(fewSamples); }

}  // namespace quillbeam
