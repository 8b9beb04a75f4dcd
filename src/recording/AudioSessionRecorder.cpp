#include "recording/AudioSessionRecorder.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "chunking/ChunkUploadError.h"
#include "recording/AudioRecordingError.h"

namespace quillbeam {

namespace {

/// Samples that are already queued when the stream has stopped can still be written for this long.
constexpr Duration settlingTime = std::chrono::milliseconds(100);

/// Of a mix when the process is about to end. The next launch does what is not done by then.
constexpr Duration longestLastMix = std::chrono::seconds(10);

/// No picture is needed: as many as the stream likes.
constexpr MediaTime anyFrameInterval{1, 2'147'483'647};

constexpr int smallestSide = 2;

}  // namespace

AudioSessionRecorder::AudioSessionRecorder(Platform& platform, RecordingJournal& journal, Path filePath,
                                           std::unique_ptr<AudioChunkWriter> chunkWriter)
    : platform_(platform),
      journal_(journal),
      filePath_(std::move(filePath)),
      chunkWriter_(std::move(chunkWriter)),
      delegate_(platform.standardOutput, [this](const Error& error) { captureEnded_ = error; }) {}

AudioSessionRecorder::~AudioSessionRecorder() = default;

Task<void> AudioSessionRecorder::startAudioRecording() {
  if (isRecording_) co_return AudioRecordingError::alreadyRecording;
  print("🎯 AudioSessionRecorder: Starting audio-only recording");
  recordingStartTime_ = platform_.dispatch.now();
  if (chunkWriter_) print("✅ AudioSessionRecorder: Chunked upload enabled with native delegate");
  auto started = co_await openFileAndCapture();
  isRecording_ = started.has_value();
  if (started) co_return success;
  microphoneFallback_.reset();
  stream_.reset();
  if (file_) file_->cancel();
  co_return started;
}

Task<void> AudioSessionRecorder::openFileAndCapture() {
  print("🎯 AudioSessionRecorder: Setting up audio-only recording with ScreenCaptureKit");
  CO_TRY(file_, MultiTrackFile::create(platform_, journal_, filePath_));
  CO_TRY_VOID(file_->startWriting());
  session_ = std::make_unique<WriterSession>(platform_.standardOutput, file_->assetWriter(), "AudioSessionRecorder: ");
  co_return co_await startCapture();
}

Task<void> AudioSessionRecorder::startCapture() {
  print("🎯 AudioSessionRecorder: Starting ScreenCaptureKit audio-only recording");
  CO_TRY(const auto content, co_await platform_.screenCapture.shareableContentForSound());
  if (content.displays.empty()) co_return AudioRecordingError::noDisplayFound;
  const StreamConfiguration configuration = streamConfiguration();
  CO_TRY(stream_, platform_.screenCapture.makeStream(content.displays.front(), configuration, delegate_));
  print("🎯 AudioSessionRecorder: SCStream created for audio-only recording");
  makeReceivers();
  CO_TRY_VOID(addOutputs());
  print("🎯 AudioSessionRecorder: Starting audio-only screen capture...");
  CO_TRY_VOID(co_await stream_->startCapture());
  if (MicrophoneFallback::isNeeded(platform_)) CO_TRY_VOID(startMicrophoneFallback());
  startSessions();
  print("🎯 AudioSessionRecorder: Audio-only screen capture started successfully");
  co_return success;
}

StreamConfiguration AudioSessionRecorder::streamConfiguration() {
  StreamConfiguration configuration{.width = smallestSide,
                                    .height = smallestSide,
                                    .minimumFrameInterval = anyFrameInterval,
                                    .capturesAudio = true,
                                    .sampleRate = 48'000,
                                    .channelCount = 2,
                                    .excludesCurrentProcessAudio = true,
                                    .pixelFormat = PixelFormat::bgra32,
                                    .showsCursor = false,
                                    .queueDepth = 5};
  if (MicrophoneFallback::isNeeded(platform_)) {
    const SystemVersion version = platform_.systemVersion;
    print("🎤 AudioSessionRecorder: Will use AVCaptureDevice fallback for microphone (" +
          std::to_string(version.major) + "." + std::to_string(version.minor) + ")");
  } else {
    print("🎤 AudioSessionRecorder: Configuring microphone capture (ScreenCaptureKit)");
    configuration.captureMicrophone = true;
  }
  return configuration;
}

void AudioSessionRecorder::makeReceivers() {
  Dispatch& dispatch = platform_.dispatch;
  StandardOutput& out = platform_.standardOutput;
  AssetWriter& writer = file_->assetWriter();
  // Serial, so that each track's samples stay in order.
  videoQueue_ = dispatch.makeSerialQueue("AudioSessionRecorder.MinimalVideoQueue");
  audioQueue_ = dispatch.makeSerialQueue("AudioSessionRecorder.SystemAudioQueue");
  microphoneQueue_ = dispatch.makeSerialQueue("AudioSessionRecorder.MicrophoneQueue");

  videoOutput_ = std::make_unique<AudioScreenCaptureStreamOutput>(
      AudioScreenCaptureStreamOutput::Parts{*videoQueue_, out, writer, *session_});
  if (AssetWriterInput* input = file_->audioInput()) {
    audioOutput_ = std::make_unique<AudioOnlyStreamOutput>(AudioOnlyTrackWriter::Parts{
        *audioQueue_, out, writer, *input, *session_, chunkSink(&AudioChunkWriter::appendAudio)});
    print("🔊 AudioSessionRecorder: Created system audio stream output");
  }
  if (AssetWriterInput* input = file_->microphoneInput()) {
    microphoneOutput_ = std::make_unique<AudioMicrophoneStreamOutput>(
        AudioOnlyTrackWriter::Parts{*microphoneQueue_, out, writer, *input, *session_,
                                    chunkSink(&AudioChunkWriter::appendMicrophoneAudio)},
        platform_.systemVersion);
    print("🎤 AudioSessionRecorder: Created microphone stream output");
  }
}

std::function<void(const SampleBuffer&)> AudioSessionRecorder::chunkSink(
    void (AudioChunkWriter::*append)(SampleBuffer)) {
  if (!chunkWriter_) return nullptr;
  return [writer = chunkWriter_.get(), append](const SampleBuffer& captured) { (writer->*append)(captured); };
}

Result<void> AudioSessionRecorder::addOutputs() {
  TRY_VOID(stream_->addStreamOutput(*videoOutput_, OutputType::screen, *videoQueue_));
  print("🎯 AudioSessionRecorder: Added minimal video stream output");
  if (audioOutput_) {
    TRY_VOID(stream_->addStreamOutput(*audioOutput_, OutputType::audio, *audioQueue_));
    print("🎯 AudioSessionRecorder: Added system audio stream output");
  }
  if (microphoneOutput_ && !MicrophoneFallback::isNeeded(platform_)) {
    TRY_VOID(stream_->addStreamOutput(*microphoneOutput_, OutputType::microphone, *microphoneQueue_));
    print("🎯 AudioSessionRecorder: Added microphone stream output (ScreenCaptureKit)");
  }
  return success;
}

Result<void> AudioSessionRecorder::startMicrophoneFallback() {
  const auto deliver = [this](const SampleBuffer& sample) {
    if (!microphoneOutput_) return;
    microphoneQueue_->async([this, sample] { microphoneOutput_->handleAVCaptureSample(sample); });
  };
  TRY(microphoneFallback_, MicrophoneFallback::start(platform_, "AudioSessionRecorder: ", deliver));
  return success;
}

void AudioSessionRecorder::startSessions() {
  videoQueue_->async([this] { videoOutput_->startSession(); });
  if (audioOutput_) audioQueue_->async([this] { audioOutput_->startSession(); });
  if (microphoneOutput_) microphoneQueue_->async([this] { microphoneOutput_->startSession(); });
}

Task<std::optional<Path>> AudioSessionRecorder::stop() {
  auto stopped = co_await stopAudioRecording();
  print(stopped ? "✅ Audio-only recording completed with mixing"
                : "❌ Failed to stop audio recording: " + stopped.error().description());
  co_return stopped;
}

Task<std::optional<Path>> AudioSessionRecorder::stopAudioRecording() {
  if (!isRecording_) co_return std::nullopt;
  isRecording_ = false;
  const UploadEnd uploadEnd = isHurried_ ? UploadEnd::leftForLater : UploadEnd::awaited;
  std::ignore = co_await stopCapture();
  std::ignore = co_await file_->finish();
  const auto uploaded = co_await finishChunks(uploadEnd);
  CO_TRY_VOID(co_await mixTracks());
  if (!uploaded) co_return chunkUploadError(uploaded.error(), filePath_);
  co_return filePath_;
}

Task<void> AudioSessionRecorder::stopCapture() {
  print("🎯 AudioSessionRecorder: Stopping audio capture...");
  if (microphoneFallback_) microphoneFallback_->stop();
  const auto stopped = co_await stream_->stopCapture();
  print(stopped ? "🎯 AudioSessionRecorder: Audio capture stream stopped"
                : "❌ AudioSessionRecorder: Error stopping audio capture: " + stopped.error().description());
  std::ignore = co_await delay(platform_.dispatch.main(), settlingTime);
  finalizeReceivers();
  print("🎯 AudioSessionRecorder: Stream outputs finalized");
  stream_.reset();
  co_return success;
}

void AudioSessionRecorder::finalizeReceivers() {
  videoQueue_->sync([this] { videoOutput_->finalizeRecording(); });
  if (audioOutput_) audioQueue_->sync([this] { audioOutput_->finalizeRecording(); });
  if (microphoneOutput_) microphoneQueue_->sync([this] { microphoneOutput_->finalizeRecording(); });
}

Task<void> AudioSessionRecorder::finishChunks(UploadEnd uploadEnd) {
  if (!chunkWriter_) co_return success;
  if (uploadEnd == UploadEnd::leftForLater) co_return co_await chunkWriter_->finishWithoutUpload();
  auto finished = co_await chunkWriter_->finishRecording();
  print(finished ? "✅ AudioSessionRecorder: Chunked upload finalized"
                 : "❌ AudioSessionRecorder: Failed to finalize chunked upload: " + finished.error().description());
  co_return finished;
}

Task<void> AudioSessionRecorder::mixTracks() {
  isPostProcessing_ = true;
  mix_.emplace(platform_, file_->path(), filePath_);
  if (isHurried_) limitMix();
  auto mixed = co_await mix_->run();
  mixLimit_.reset();
  isPostProcessing_ = false;
  fileIsComplete_ = mixed.has_value();
  if (mixed || (file_->isFinished() && !MultiTrackMix::isWorthAnotherTry(mixed.error()))) file_->settle();
  if (!mixed) co_return mixFailed(mixed.error());
  co_return success;
}

Error AudioSessionRecorder::mixFailed(const Error& cause) {
  print("❌ AudioSessionRecorder: Post-processing failed: " + cause.description());
  const Error failed = Error(AudioRecordingError::postProcessingFailed).withUnderlying(cause);
  const bool isEmpty = file_->isFinished() && cause.is(AudioRecordingError::nothingRecorded);
  if (isEmpty) std::ignore = platform_.files.remove(file_->path());
  mixProblem_ = isEmpty ? cause : failed;
  if (!platform_.files.exists(file_->path())) return failed;
  print("⚠️ AudioSessionRecorder: Both tracks are kept in " + file_->path());
  mixProblem_ = Error(failed).withDescription(failed.description() + "; both tracks are kept in " + file_->path());
  return failed;
}

void AudioSessionRecorder::hurry() {
  isHurried_ = true;
  if (isPostProcessing_) limitMix();
}

void AudioSessionRecorder::limitMix() {
  mixLimit_ = platform_.dispatch.main().after(longestLastMix, [this] { mix_->cancel(); });
}

RecordingReport AudioSessionRecorder::report() {
  RecordingReport report{.filePath = filePath_, .fileBytes = fileBytes(), .fileIsComplete = fileIsComplete_};
  if (audioOutput_) {
    report.duration = audioOutput_->track().written();
    report.systemAudioLevel = audioOutput_->track().takeLevel();
  }
  if (microphoneOutput_) {
    report.duration = std::max(report.duration, microphoneOutput_->track().written());
    report.microphoneLevel = microphoneOutput_->track().takeLevel();
  }
  report.problem = mixProblem_;
  if (!report.problem && file_) report.problem = file_->assetWriter().error();
  if (!report.problem) report.problem = captureEnded_;
  return report;
}

std::int64_t AudioSessionRecorder::fileBytes() {
  if (!fileIsComplete_) return file_ ? file_->assetWriter().bytesWritten() : 0;
  const auto info = platform_.files.info(filePath_);
  return info ? info->size : 0;
}

ValueMap AudioSessionRecorder::getRecordingStatus() const {
  const double duration =
      recordingStartTime_ ? std::chrono::duration<double>(platform_.dispatch.now() - *recordingStartTime_).count() : 0;
  return {{"isRecording", isRecording_},
          {"duration", duration},
          {"includeSystemAudio", true},
          {"includeMicrophone", true},
          {"isPostProcessing", isPostProcessing_},
          {"postProcessingProgress", mix_ ? mix_->progress() : 0.0}};
}

}  // namespace quillbeam
