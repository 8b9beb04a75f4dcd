#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Completion.h"
#include "base/Date.h"
#include "base/Value.h"
#include "chunking/AudioChunkWriter.h"
#include "chunking/ChunkUploadDelegate.h"
#include "chunking/VideoChunkWriter.h"
#include "chunking/VideoChunkWriterDelegate.h"
#include "platform/Platform.h"
#include "recording/MacRecordingConfig.h"
#include "recording/RecordingJournal.h"
#include "recording/RecordingUploads.h"
#include "recording/RunningRecording.h"
#include "upload/NativeUploadAdapter.h"

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
class MacRecorderManager : private VideoChunkWriterDelegate {
 public:
  /// What a start is asked for. With team, folder and name, and with somewhere to upload to, the recording is uploaded
  /// while it runs.
  struct StartRequest {
    Path filePath;
    ValueMap config;  ///< "recordingMode", "includeSystemAudio", "includeMicrophone", "audioQuality"
    std::optional<std::string> teamId;
    std::optional<std::string> folderId;
    std::optional<std::string> fileName;
    /// Where parts go; when not given, to the configured service, if there is one.
    std::shared_ptr<ChunkUploadDelegate> uploadDelegate;
    /// Under which the UI layer shows the recording until the service has named the file.
    std::optional<std::string> tempFileId;
  };

  MacRecorderManager(Platform& platform, RecordingJournal& journal, RecordingUploads uploads)
      : platform_(platform), journal_(journal), uploads_(uploads) {}

  /// `RecordingError`s, or the error of the port that failed, unchanged.
  Task<void> startMacRecording(StartRequest request);
  /// Without a recording: an empty result. `ChunkUploadError` when the file is complete but its upload is not.
  Task<StopRecordingResult> stopMacRecording();
  /// What the service called the running recording's file, else that of the uploads' current session.
  std::optional<std::string> currentNativeUploadFileId() const;
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
  /// For the end of the process: stops a recording without waiting for its upload.
  Task<void> stopForTermination();
  /// Resumes when no start or stop is under way.
  Task<void> settled();

 private:
  enum class Phase { idle, starting, recording, stopping };

  void chunkWriterDidUploadPart(int partNumber) override;
  void chunkWriterDidFailWithError(const Error& error) override;

  Task<void> run(StartRequest request);
  std::unique_ptr<RunningRecording> makeRecording(const StartRequest& request, Resolution resolution);
  std::unique_ptr<RunningRecording> makeScreenRecording(const StartRequest& request, Resolution resolution);
  Resolution chooseOutputResolution() const;
  void chooseUploadDelegate(const StartRequest& request);
  bool isToBeUploaded(const StartRequest& request) const;
  std::unique_ptr<VideoChunkWriter> makeVideoChunkWriter(const StartRequest& request, Resolution resolution);
  std::unique_ptr<AudioChunkWriter> makeAudioChunkWriter(const StartRequest& request);
  Task<void> startAudioOnly(const StartRequest& request);
  Task<StopRecordingResult> stop();
  void forgetRecording();
  void enter(Phase phase);
  void print(std::string_view line) const { platform_.standardOutput.print(line); }

  Platform& platform_;
  RecordingJournal& journal_;
  const RecordingUploads uploads_;
  Phase phase_ = Phase::idle;
  bool isPaused_ = false;
  std::optional<Date> recordingStartTime_;
  RecordingConfig config_;
  std::optional<ShareableDisplay> selectedDisplay_;
  std::shared_ptr<ChunkUploadDelegate> nativeUploadDelegate_;
  std::shared_ptr<NativeUploadAdapter> ownAdapter_;  ///< the delegate, when it was made here
  std::unique_ptr<RunningRecording> recording_;
  std::optional<Error> uploadProblem_;  ///< the first one of the running recording, else of the last
  std::optional<RecordingReport> lastReport_;
  std::vector<Completion<void>> waitingToSettle_;
};

}  // namespace quillbeam
