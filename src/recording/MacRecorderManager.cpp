#include "recording/MacRecorderManager.h"

#include <chrono>
#include <tuple>

#include "recording/RecordingError.h"

namespace quillbeam {

Value StopRecordingResult::toValue() const {
  return ValueMap{
      {"filePath", filePath}, {"usedNativeUpload", usedNativeUpload}, {"nativeUploadFileId", nativeUploadFileId}};
}

Task<void> MacRecorderManager::startMacRecording(Path filePath, ValueMap config) {
  if (phase_ != Phase::idle) co_return RecordingError::alreadyRecording;
  print("🎯 Starting recording - permissions will be handled naturally by the recording process");
  enter(Phase::starting);
  const RecordingConfig parsed = RecordingConfig::fromMap(config);
  auto started = co_await run(filePath, parsed);
  if (!started) {
    lastReport_ = RecordingReport{.filePath = filePath, .problem = started.error()};
    recording_.reset();
    recordingStartTime_.reset();
  }
  enter(started ? Phase::recording : Phase::idle);
  co_return started;
}

Task<void> MacRecorderManager::run(Path filePath, RecordingConfig config) {
  config_ = std::move(config);
  isPaused_ = false;
  print("🎯 macOS: Recording mode: " + config_.recordingMode);
  const Resolution resolution = config_.mode() == RecordingMode::screen ? chooseOutputResolution() : Resolution{};
  print("🎯 No upload mechanism configured - local only");
  print("🎯 Using traditional recording (local file only)");
  recordingStartTime_ = platform_.dispatch.now();
  switch (config_.mode()) {
    case RecordingMode::screen:
      co_return co_await runScreenRecording(std::move(filePath), resolution);
    case RecordingMode::audioOnly:
      co_return RecordingError::screenCaptureNotSupported;
    case RecordingMode::unknown:
      co_return RecordingError::invalidRecordingMode;
  }
  std::unreachable();
}

Task<void> MacRecorderManager::runScreenRecording(Path filePath, Resolution resolution) {
  recording_ = std::make_unique<ScreenRecording>(
      platform_, journal_,
      ScreenRecording::Request{
          .filePath = std::move(filePath), .config = config_, .resolution = resolution, .display = selectedDisplay_});
  co_return co_await recording_->start();
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
  if (phase_ != Phase::recording) co_return StopRecordingResult{};
  enter(Phase::stopping);
  std::ignore = co_await recording_->stop();
  lastReport_ = recording_->report();
  recording_.reset();
  recordingStartTime_.reset();
  isPaused_ = false;
  enter(Phase::idle);
  co_return StopRecordingResult{.filePath = lastReport_->filePath};
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
  return ValueMap{{"isRecording", phase_ == Phase::recording},
                  {"isPaused", isPaused_},
                  {"duration", duration},
                  {"includeSystemAudio", config_.includeSystemAudio},
                  {"includeMicrophone", config_.includeMicrophone}};
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

std::optional<RecordingReport> MacRecorderManager::report() { return recording_ ? recording_->report() : lastReport_; }

Task<void> MacRecorderManager::shutDown() {
  std::ignore = co_await stopMacRecording();
  co_return co_await settled();
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
