#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Completion.h"
#include "base/Date.h"
#include "base/Value.h"
#include "platform/Platform.h"
#include "recording/RecordingJournal.h"
#include "recording/ScreenRecording.h"

namespace quillbeam {

/// What a stop hands back; sent to the UI layer as a map of these three keys.
struct StopRecordingResult {
  std::optional<std::string> filePath;
  bool usedNativeUpload = false;
  std::optional<std::string> nativeUploadFileId;
  Value toValue() const;
};

/// What is to be captured: a window or a display.
struct ScreenCaptureSelection {
  std::optional<ShareableWindow> window;
  std::optional<ShareableDisplay> display;
};

/// Owns one meeting recording at a time: reads its configuration, starts it, stops and finishes it. Main queue.
///
///     idle → starting → recording → stopping → idle
///              └ failed: idle
///
/// A recording that is starting or stopping counts as one: another start is `alreadyRecording`; a stop waits for the
/// start to end, then stops it.
class MacRecorderManager {
 public:
  MacRecorderManager(Platform& platform, RecordingJournal& journal) : platform_(platform), journal_(journal) {}

  /// `config` holds "recordingMode", "includeSystemAudio", "includeMicrophone", "audioQuality". `RecordingError`s, or
  /// the error of the port that failed, unchanged.
  Task<void> startMacRecording(Path filePath, ValueMap config);
  /// Without a recording: an empty result.
  Task<StopRecordingResult> stopMacRecording();
  Value getMacRecordingStatus() const;
  /// Chooses the whole main display for the recordings to come. `RecordingError::noDisplayFound`.
  Task<ScreenCaptureSelection> selectScreenCaptureContent();

  enum class PauseChange { changed, unchanged };
  /// Marks only: capture goes on while paused.
  PauseChange pause();
  PauseChange resume();

  /// Figures of the running recording, else of the last one; nullopt before the first. Of a start that failed, only the
  /// path and the problem, which says more than the error's own text.
  std::optional<RecordingReport> report();
  /// For the end of the process: stops a recording, waits for one that is being stopped.
  Task<void> shutDown();

 private:
  enum class Phase { idle, starting, recording, stopping };

  Task<void> run(Path filePath, RecordingConfig config);
  Task<void> runScreenRecording(Path filePath, Resolution resolution);
  Resolution chooseOutputResolution() const;
  /// Resumes when no start or stop is under way.
  Task<void> settled();
  void enter(Phase phase);
  void print(std::string_view line) const { platform_.standardOutput.print(line); }

  Platform& platform_;
  RecordingJournal& journal_;
  Phase phase_ = Phase::idle;
  bool isPaused_ = false;
  std::optional<Date> recordingStartTime_;
  RecordingConfig config_;
  std::optional<ShareableDisplay> selectedDisplay_;
  std::unique_ptr<ScreenRecording> recording_;
  std::optional<RecordingReport> lastReport_;
  std::vector<Completion<void>> waitingToSettle_;
};

}  // namespace quillbeam
