#include "recording/ScreenRecording.h"

#include <tuple>

#include "base/Text.h"
#include "chunking/ChunkUploadError.h"
#include "recording/RecordingError.h"

namespace quillbeam {

namespace {

/// Samples that are already queued when the stream has stopped can still be written for this long.
constexpr Duration settlingTime = std::chrono::milliseconds(500);

}  // namespace

ScreenRecording::ScreenRecording(Platform& platform, RecordingJournal& journal, Request request,
                                 std::unique_ptr<VideoChunkWriter> chunkWriter)
    : platform_(platform),
      journal_(journal),
      request_(std::move(request)),
      chunkWriter_(std::move(chunkWriter)),
      delegate_(platform.standardOutput, [this](const Error& error) { captureEnded_ = error; }) {}

ScreenRecording::~ScreenRecording() {
  microphoneFallback_.reset();
  stream_.reset();
  if (!audioOutput_) return;
  audioQueue_->sync([this] { audioOutput_->cancelRetries(); });
}

Task<void> ScreenRecording::start() {
  auto started = co_await openFileAndCapture();
  if (!started) unwind();
  co_return started;
}

void ScreenRecording::unwind() {
  microphoneFallback_.reset();
  stream_.reset();
  if (file_) file_->cancel();
  if (journalId_) journal_.close(*journalId_);
  chunksAreFinished();
}

Task<void> ScreenRecording::openFileAndCapture() {
  print("🎯 macOS: Starting screen + system audio + microphone recording with ScreenCaptureKit");
  print("🎯 Using output resolution: " + request_.resolution.text());
  CO_TRY(file_, SingleFileWriter::create(platform_.mediaWriters, platform_.standardOutput, request_.filePath,
                                         request_.resolution, request_.config));
  CO_TRY(journalId_, journal_.open(request_.filePath, platform_.dispatch.now()));
  if (request_.chunkBackup) {
    CO_TRY(chunkJournalId_, journal_.open(*request_.chunkBackup, platform_.dispatch.now()));
  }
  CO_TRY_VOID(file_->startWriting());
  timeline_ = std::make_unique<RecordingTimeline>(platform_.standardOutput, file_->assetWriter(),
                                                  RecordingTimeline::Baseline::firstVideoFrame);
  co_return co_await startCapture();
}

Task<void> ScreenRecording::startCapture() {
  if (!request_.display) co_return RecordingError::noContentSelected;
  CO_TRY_VOID(checkScreenAccess());
  print("🎯 SCStream using resolution: " + request_.resolution.text());
  const StreamConfiguration configuration = streamConfiguration();
  CO_TRY(stream_, platform_.screenCapture.makeStream(*request_.display, configuration, delegate_));
  print("🎯 SCStream created successfully");
  makeReceivers();
  CO_TRY_VOID(addOutputs());
  print("🎯 Starting screen capture...");
  CO_TRY_VOID(co_await stream_->startCapture());
  if (usesMicrophoneFallback()) CO_TRY_VOID(startMicrophoneFallback());
  startSessions();
  print("🎯 Screen capture started for display: " + std::to_string(request_.display->displayId));
  co_return success;
}

Result<void> ScreenRecording::checkScreenAccess() {
  bool granted = platform_.permissions.preflightScreenCaptureAccess();
  print("🎯 Screen recording permission check: " + truth(granted));
  if (!granted) {
    print("🎯 Requesting screen recording permission...");
    granted = platform_.permissions.requestScreenCaptureAccess();
    print("🎯 Screen recording permission granted: " + truth(granted));
  }
  if (!granted) return RecordingError::screenCaptureNotSupported;
  return success;
}

StreamConfiguration ScreenRecording::streamConfiguration() {
  StreamConfiguration configuration{.width = request_.resolution.width,
                                    .height = request_.resolution.height,
                                    .minimumFrameInterval = MediaTime(1, 24),
                                    .capturesAudio = request_.config.includeSystemAudio,
                                    .sampleRate = 48'000,
                                    .channelCount = 2,
                                    .excludesCurrentProcessAudio = false,
                                    .pixelFormat = PixelFormat::bgra32,
                                    .showsCursor = false,
                                    .queueDepth = 6};
  configureMicrophone(configuration);
  print("🎤 Final stream config - captureMicrophone: " + truth(configuration.captureMicrophone));
  print("🎯 Stream configuration - Width: " + std::to_string(configuration.width) +
        ", Height: " + std::to_string(configuration.height));
  print("🎯 Video profile: Bandwidth Saver (24 fps, 2 Mbps)");
  print("🎯 Audio configuration - System Audio: " + truth(request_.config.includeSystemAudio) +
        ", Microphone: " + truth(request_.config.includeMicrophone));
  return configuration;
}

void ScreenRecording::configureMicrophone(StreamConfiguration& configuration) {
  if (!request_.config.includeMicrophone) return print("🎤 Microphone recording disabled in configuration");
  if (usesMicrophoneFallback()) return print("🎤 Configuring microphone capture via AVCaptureDevice (macOS 14.4)");
  print("🎤 Configuring microphone capture for macOS 15+ (ScreenCaptureKit)");
  print("🎤 Microphone permission status: " +
        std::to_string(static_cast<int>(platform_.permissions.microphoneAuthorization())));
  configuration.captureMicrophone = true;
  print("🎤 Using system default microphone device via ScreenCaptureKit");
}

bool ScreenRecording::usesMicrophoneFallback() const {
  return request_.config.includeMicrophone && MicrophoneFallback::isNeeded(platform_);
}

void ScreenRecording::makeReceivers() {
  Dispatch& dispatch = platform_.dispatch;
  StandardOutput& out = platform_.standardOutput;
  AssetWriter& writer = file_->assetWriter();
  videoQueue_ = dispatch.makeSerialQueue("ScreenRecorder.VideoSampleBufferQueue");
  audioQueue_ = dispatch.makeSerialQueue("ScreenRecorder.AudioSampleBufferQueue");
  microphoneQueue_ = dispatch.makeSerialQueue("ScreenRecorder.MicrophoneSampleBufferQueue");

  videoOutput_ = std::make_unique<ScreenCaptureStreamOutput>(ScreenCaptureStreamOutput::Parts{
      *videoQueue_, out, writer, file_->videoInput(), *timeline_, statistics_, chunkWriter_.get()});
  if (AssetWriterInput* input = file_->audioInput()) {
    audioOutput_ = std::make_unique<AudioStreamOutput>(
        SoundTrackWriter::Parts{*audioQueue_, out, writer, *input, *timeline_, statistics_.systemAudio,
                                chunkSink(&VideoChunkWriter::appendAudio)});
  }
  print(audioOutput_ ? "🔊 Created system audio stream output"
                     : "⚠️ System audio input is nil - not creating audio stream output");
  if (AssetWriterInput* input = file_->microphoneInput()) {
    microphoneOutput_ = std::make_unique<MicrophoneStreamOutput>(
        SoundTrackWriter::Parts{*microphoneQueue_, out, writer, *input, *timeline_, statistics_.microphone,
                                chunkSink(&VideoChunkWriter::appendMicrophoneAudio)},
        platform_.systemVersion);
  }
  print(microphoneOutput_ ? "🎤 Created microphone stream output"
                          : "⚠️ Microphone input is nil - not creating microphone stream output");
}

std::function<void(const SampleBuffer&)> ScreenRecording::chunkSink(void (VideoChunkWriter::*append)(SampleBuffer)) {
  if (!chunkWriter_) return nullptr;
  return [writer = chunkWriter_.get(), append](const SampleBuffer& captured) { (writer->*append)(captured); };
}

Result<void> ScreenRecording::addOutputs() {
  TRY_VOID(stream_->addStreamOutput(*videoOutput_, OutputType::screen, *videoQueue_));
  print("🎯 Added video stream output");
  if (audioOutput_) {
    TRY_VOID(stream_->addStreamOutput(*audioOutput_, OutputType::audio, *audioQueue_));
    print("🎯 Added system audio stream output");
  }
  if (microphoneOutput_ && !usesMicrophoneFallback()) {
    TRY_VOID(stream_->addStreamOutput(*microphoneOutput_, OutputType::microphone, *microphoneQueue_));
    print("🎯 Added microphone stream output (ScreenCaptureKit)");
  }
  return success;
}

Result<void> ScreenRecording::startMicrophoneFallback() {
  const auto deliver = [this](const SampleBuffer& sample) {
    if (!microphoneOutput_) return;
    microphoneQueue_->async([this, sample] { microphoneOutput_->handleAVCaptureSample(sample); });
  };
  TRY(microphoneFallback_, MicrophoneFallback::start(platform_, "", deliver));
  return success;
}

void ScreenRecording::startSessions() {
  videoQueue_->async([this] { videoOutput_->startSession(); });
  if (audioOutput_) audioQueue_->async([this] { audioOutput_->startSession(); });
  if (microphoneOutput_) microphoneQueue_->async([this] { microphoneOutput_->startSession(); });
}

Task<std::optional<Path>> ScreenRecording::stop() {
  const UploadEnd uploadEnd = uploadEnd_;
  std::ignore = co_await stopCapture();
  std::ignore = co_await finishFile();
  const auto uploaded = co_await finishChunks(uploadEnd);
  if (!uploaded) co_return chunkUploadError(uploaded.error(), request_.filePath);
  co_return request_.filePath;
}

Task<void> ScreenRecording::finishFile() {
  std::ignore = co_await file_->finish(platform_.files);
  // A file that could not be finished stays in the journal: the next launch repairs it.
  if (file_->assetWriter().status() == AssetWriter::Status::completed && journalId_) journal_.close(*journalId_);
  co_return success;
}

Task<void> ScreenRecording::stopCapture() {
  print("🎯 Stopping screen capture stream...");
  if (microphoneFallback_) microphoneFallback_->stop();
  const auto stopped = co_await stream_->stopCapture();
  print(stopped ? "🎯 Screen capture stream stopped"
                : "Error stopping screen capture: " + stopped.error().description());
  std::ignore = co_await delay(platform_.dispatch.main(), settlingTime);
  finalizeReceivers();
  print("🎯 Stream outputs finalized");
  framesDroppedByStream_ = stream_->statistics().framesDropped;
  stream_.reset();
  co_return success;
}

Task<void> ScreenRecording::finishChunks(UploadEnd uploadEnd) {
  if (!chunkWriter_) co_return success;
  if (uploadEnd == UploadEnd::leftForLater) {
    auto settled = co_await chunkWriter_->finishWithoutUpload();
    chunksAreFinished();
    co_return settled;
  }
  auto finished = co_await chunkWriter_->finishRecording();
  chunksAreFinished();
  print(finished ? "✅ Chunked recording finalized successfully"
                 : "❌ Failed to finalize chunked recording: " + finished.error().description());
  co_return finished;
}

/// Their file needs no repair any more.
void ScreenRecording::chunksAreFinished() {
  if (const auto id = std::exchange(chunkJournalId_, std::nullopt)) journal_.close(*id);
}

void ScreenRecording::finalizeReceivers() {
  videoQueue_->sync([this] { videoOutput_->finalizeRecording(); });
  if (audioOutput_) audioQueue_->sync([this] { audioOutput_->finalizeRecording(); });
  if (microphoneOutput_) microphoneQueue_->sync([this] { microphoneOutput_->finalizeRecording(); });
}

RecordingReport ScreenRecording::report() {
  const std::int64_t droppedByStream = stream_ ? stream_->statistics().framesDropped : framesDroppedByStream_;
  RecordingReport report{.filePath = request_.filePath,
                         .duration = MediaTime::nanoseconds(statistics_.lastVideoNanoseconds),
                         .fileBytes = file_ ? file_->assetWriter().bytesWritten() : 0,
                         .videoFrames = statistics_.videoFrames,
                         .droppedFrames = droppedByStream + statistics_.droppedByWriter,
                         .systemAudioLevel = statistics_.systemAudio.take(),
                         .microphoneLevel = statistics_.microphone.take()};
  if (file_) report.problem = file_->assetWriter().error();
  report.fileIsComplete = file_ && file_->assetWriter().status() == AssetWriter::Status::completed;
  if (!report.problem) report.problem = captureEnded_;
  return report;
}

}  // namespace quillbeam
