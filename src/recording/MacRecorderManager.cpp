#include "recording/MacRecorderManager.h"

#include <chrono>
#include <tuple>

#include "recording/AudioSessionRecorder.h"
#include "recording/RecordingError.h"
#include "recording/ScreenRecording.h"

namespace quillbeam {

namespace {

/// Beside the recording: "talk_chunk_backup.mp4" for "talk.mp4".
Path chunkBackupPath(const Path& filePath) {
  const std::string_view extension = fileExtension(filePath);
  std::string_view stem = fileName(filePath);
  if (!extension.empty()) stem.remove_suffix(extension.size() + 1);
  return joined(Path(parentDirectory(filePath)), std::string(stem) + "_chunk_backup." + std::string(extension));
}

}  // namespace

Value StopRecordingResult::toValue() const {
  return ValueMap{
      {"filePath", filePath}, {"usedNativeUpload", usedNativeUpload}, {"nativeUploadFileId", nativeUploadFileId}};
}

Task<void> MacRecorderManager::startMacRecording(StartRequest request) {
  if (phase_ != Phase::idle) co_return RecordingError::alreadyRecording;
  print("🎯 Starting recording - permissions will be handled naturally by the recording process");
  enter(Phase::starting);
  const Path filePath = request.filePath;
  auto started = co_await run(std::move(request));
  if (!started) {
    lastReport_ = RecordingReport{.filePath = filePath, .problem = started.error()};
    forgetRecording();
  }
  enter(started ? Phase::recording : Phase::idle);
  co_return started;
}

void MacRecorderManager::forgetRecording() {
  recording_.reset();
  nativeUploadDelegate_.reset();
  ownAdapter_.reset();
  recordingStartTime_.reset();
}

Task<void> MacRecorderManager::run(StartRequest request) {
  config_ = RecordingConfig::fromMap(request.config);
  isPaused_ = false;
  uploadProblem_.reset();
  print("🎯 macOS: Recording mode: " + config_.recordingMode);
  const Resolution resolution = config_.mode() == RecordingMode::screen ? chooseOutputResolution() : Resolution{};
  chooseUploadDelegate(request);
  recording_ = makeRecording(request, resolution);
  print(isToBeUploaded(request) ? "🎯 Using chunked recording with native upload"
                                : "🎯 Using traditional recording (local file only)");
  recordingStartTime_ = platform_.dispatch.now();
  switch (config_.mode()) {
    case RecordingMode::screen:
      co_return co_await recording_->start();
    case RecordingMode::audioOnly:
      co_return co_await startAudioOnly(request);
    case RecordingMode::unknown:
      co_return RecordingError::invalidRecordingMode;
  }
  std::unreachable();
}

Task<void> MacRecorderManager::startAudioOnly(const StartRequest& request) {
  if (isToBeUploaded(request)) {
    print("🎯 AudioSessionRecorder: Native chunked upload enabled");
    print("🎯 macOS: Audio-only with native chunked upload enabled");
  }
  CO_TRY_VOID(co_await recording_->start());
  print("🎯 macOS: Using AudioSessionRecorder for audio-only recording");
  co_return success;
}

std::unique_ptr<RunningRecording> MacRecorderManager::makeRecording(const StartRequest& request,
                                                                    Resolution resolution) {
  switch (config_.mode()) {
    case RecordingMode::screen:
      return makeScreenRecording(request, resolution);
    case RecordingMode::audioOnly:
      return std::make_unique<AudioSessionRecorder>(platform_, journal_, request.filePath,
                                                    makeAudioChunkWriter(request));
    case RecordingMode::unknown:
      return nullptr;
  }
  std::unreachable();
}

void MacRecorderManager::chooseUploadDelegate(const StartRequest& request) {
  if (request.uploadDelegate) {
    nativeUploadDelegate_ = request.uploadDelegate;
    nativeUploadDelegate_->setTempFileId(request.tempFileId);
    return print("🎯 Using native upload delegate (explicit)");
  }
  if (!uploads_.apiClient.isConfigured()) return print("🎯 No upload mechanism configured - local only");
  const bool isScreen = config_.recordingMode.contains("screen");
  ownAdapter_ = std::make_shared<NativeUploadAdapter>(
      uploads_.manager, isScreen ? MacUploadSourceType::screen : MacUploadSourceType::audio,
      NativeUploadAdapter::Sessions::ownOnly);
  ownAdapter_->setTempFileId(request.tempFileId);
  nativeUploadDelegate_ = ownAdapter_;
  print("🎯 Using native upload delegate (auto-configured)");
}

bool MacRecorderManager::isToBeUploaded(const StartRequest& request) const {
  return request.teamId && request.folderId && request.fileName && nativeUploadDelegate_;
}

std::unique_ptr<VideoChunkWriter> MacRecorderManager::makeVideoChunkWriter(const StartRequest& request,
                                                                           Resolution resolution) {
  if (!isToBeUploaded(request)) return nullptr;
  const Path backup = chunkBackupPath(request.filePath);
  print("📁 VideoChunkWriter backup path: " + backup);
  print("📁 MacRecorderManager main path: " + request.filePath);
  auto writer = std::make_unique<VideoChunkWriter>(
      platform_, uploads_.storedRecordings, uploads_.notifications,
      VideoChunkWriter::Options{.recording = {.teamId = *request.teamId,
                                              .folderId = *request.folderId,
                                              .fileName = *request.fileName,
                                              .contentType = "video/mp4",
                                              .localFile = backup},
                                .width = resolution.width,
                                .height = resolution.height,
                                .sources = {config_.includeSystemAudio, config_.includeMicrophone}});
  writer->setUploadDelegate(nativeUploadDelegate_);
  writer->setObserver(this);
  print("✅ Chunked recording setup completed for " + *request.fileName);
  return writer;
}

std::unique_ptr<AudioChunkWriter> MacRecorderManager::makeAudioChunkWriter(const StartRequest& request) {
  if (!isToBeUploaded(request)) return nullptr;
  auto writer = std::make_unique<AudioChunkWriter>(
      platform_, uploads_.storedRecordings, uploads_.notifications,
      AudioChunkWriter::Options{
          .recording = {.teamId = *request.teamId, .folderId = *request.folderId, .fileName = *request.fileName},
          .sources = {}});
  writer->setUploadDelegate(nativeUploadDelegate_);
  return writer;
}

void MacRecorderManager::chunkWriterDidUploadPart(int partNumber) {
  print("📦 Chunk part #" + std::to_string(partNumber) + " uploaded successfully");
}

void MacRecorderManager::chunkWriterDidFailWithError(const Error& error) {
  print("❌ Chunk writer error: " + error.description());
  if (!uploadProblem_) uploadProblem_ = error;
}

std::optional<std::string> MacRecorderManager::currentNativeUploadFileId() const {
  if (ownAdapter_ && ownAdapter_->sessionId()) return ownAdapter_->fileId();
  const auto session = uploads_.manager.activeSession();
  return session ? std::optional(session->fileId) : std::nullopt;
}

std::unique_ptr<RunningRecording> MacRecorderManager::makeScreenRecording(const StartRequest& request,
                                                                          Resolution resolution) {
  auto chunkWriter = makeVideoChunkWriter(request, resolution);
  ScreenRecording::Request recording{
      .filePath = request.filePath, .config = config_, .resolution = resolution, .display = selectedDisplay_};
  if (chunkWriter) recording.chunkBackup = chunkBackupPath(request.filePath);
  return std::make_unique<ScreenRecording>(platform_, journal_, std::move(recording), std::move(chunkWriter));
}

Resolution MacRecorderManager::chooseOutputResolution() const {
  if (!selectedDisplay_) {
    print("⚠️ No display selected, using default 1920x1080");
    return {};
  }
  const Resolution resolution = MacRecordingConfig::outputResolution(selectedDisplay_->width, selectedDisplay_->height);
  print("🎯 Calculated output resolution: " + resolution.text());
  return resolution;
}

Task<StopRecordingResult> MacRecorderManager::stopMacRecording() {
  if (phase_ == Phase::starting) std::ignore = co_await settled();
  co_return co_await stop();
}

Task<StopRecordingResult> MacRecorderManager::stop() {
  if (phase_ != Phase::recording) co_return StopRecordingResult{};
  const bool usesUpload = nativeUploadDelegate_ != nullptr;
  const auto fileId = currentNativeUploadFileId();
  enter(Phase::stopping);
  const auto filePath = co_await recording_->stop();
  lastReport_ = recording_->report();
  forgetRecording();
  isPaused_ = false;
  enter(Phase::idle);
  if (!filePath) co_return filePath.error();
  co_return StopRecordingResult{.filePath = *filePath, .usedNativeUpload = usesUpload, .nativeUploadFileId = fileId};
}

Task<ScreenCaptureSelection> MacRecorderManager::selectScreenCaptureContent() {
  print("🎯 selectScreenCaptureContent called - using entire main display");
  CO_TRY(const auto content, co_await platform_.screenCapture.shareableContent());
  if (content.displays.empty()) co_return RecordingError::noDisplayFound;
  selectedDisplay_ = content.displays.front();
  print("🎯 Selected main display for full screen recording: " + std::to_string(selectedDisplay_->displayId));
  co_return ScreenCaptureSelection{.display = selectedDisplay_};
}

Value MacRecorderManager::getMacRecordingStatus() const {
  const double duration =
      recordingStartTime_ ? std::chrono::duration<double>(platform_.dispatch.now() - *recordingStartTime_).count() : 0;
  ValueMap status{{"isRecording", phase_ == Phase::recording},
                  {"isPaused", isPaused_},
                  {"duration", duration},
                  {"includeSystemAudio", config_.includeSystemAudio},
                  {"includeMicrophone", config_.includeMicrophone}};
  if (!recording_) return status;
  for (const auto& [key, value] : recording_->getRecordingStatus()) status.set(key, value);
  return status;
}

MacRecorderManager::PauseChange MacRecorderManager::pause() {
  if (phase_ != Phase::recording || isPaused_) return PauseChange::unchanged;
  isPaused_ = true;
  return PauseChange::changed;
}

MacRecorderManager::PauseChange MacRecorderManager::resume() {
  if (phase_ != Phase::recording || !isPaused_) return PauseChange::unchanged;
  isPaused_ = false;
  return PauseChange::changed;
}

std::optional<RecordingReport> MacRecorderManager::report() {
  auto report = recording_ ? recording_->report() : lastReport_;
  if (report) report->uploadProblem = uploadProblem_;
  return report;
}

Task<void> MacRecorderManager::stopForTermination() {
  if (phase_ == Phase::starting) std::ignore = co_await settled();
  if (recording_) recording_->hurry();
  std::ignore = co_await stop();
  co_return success;
}

Task<void> MacRecorderManager::settled() {
  if (phase_ != Phase::starting && phase_ != Phase::stopping) co_return success;
  co_return co_await completed<void>([this](Completion<void> done) { waitingToSettle_.push_back(std::move(done)); });
}

void MacRecorderManager::enter(Phase phase) {
  phase_ = phase;
  if (phase == Phase::starting || phase == Phase::stopping) return;
  for (const auto& waiting : std::exchange(waitingToSettle_, {})) waiting(success);
}

}  // namespace quillbeam
