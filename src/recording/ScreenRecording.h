#pragma once

#include <memory>
#include <optional>

#include "chunking/VideoChunkWriter.h"
#include "platform/Platform.h"
#include "recording/AudioStreamOutput.h"
#include "recording/MacRecordingConfig.h"
#include "recording/MicrophoneFallback.h"
#include "recording/MicrophoneStreamOutput.h"
#include "recording/RecordingJournal.h"
#include "recording/RecordingReport.h"
#include "recording/RecordingStatistics.h"
#include "recording/RecordingTimeline.h"
#include "recording/RunningRecording.h"
#include "recording/ScreenCaptureDelegate.h"
#include "recording/ScreenCaptureStreamOutput.h"
#include "recording/SingleFileWriter.h"

namespace quillbeam {

/// One recording of the screen, from the start of its writer to the finished file. Main queue; the receivers live on
/// their three sample queues.
class ScreenRecording final : public RunningRecording {
 public:
  struct Request {
    Path filePath;
    RecordingConfig config;
    Resolution resolution;
    std::optional<ShareableDisplay> display;
    std::optional<Path> chunkBackup;  ///< the chunk writer's file, when there is a chunk writer
  };

  /// `chunkWriter`, if any, gets everything that is captured.
  ScreenRecording(Platform& platform, RecordingJournal& journal, Request request,
                  std::unique_ptr<VideoChunkWriter> chunkWriter);
  ~ScreenRecording() override;

  Task<void> start() override;
  /// What goes wrong with the file is in the log and in the report, no error of the stop.
  Task<std::optional<Path>> stop() override;
  void hurry() override { uploadEnd_ = UploadEnd::leftForLater; }
  RecordingReport report() override;

 private:
  Task<void> openFileAndCapture();
  Task<void> startCapture();
  Result<void> checkScreenAccess();
  StreamConfiguration streamConfiguration();
  void configureMicrophone(StreamConfiguration& configuration);
  void makeReceivers();
  std::function<void(const SampleBuffer&)> chunkSink(void (VideoChunkWriter::*append)(SampleBuffer));
  Result<void> addOutputs();
  Result<void> startMicrophoneFallback();
  void startSessions();
  Task<void> stopCapture();
  Task<void> finishFile();
  Task<void> finishChunks(UploadEnd uploadEnd);
  void chunksAreFinished();
  void finalizeReceivers();
  void unwind();
  bool usesMicrophoneFallback() const;
  void print(std::string_view line) const { platform_.standardOutput.print(line); }

  Platform& platform_;
  RecordingJournal& journal_;
  const Request request_;
  std::optional<std::string> journalId_;
  std::optional<std::string> chunkJournalId_;  ///< of the chunk writer's local backup
  std::optional<Error> captureEnded_;
  std::int64_t framesDroppedByStream_ = 0;
  UploadEnd uploadEnd_ = UploadEnd::awaited;

  // Each line below may use the ones above it; they go in reverse: stream and microphone first, then the queues (which
  // run what is left on them), then the receivers, the writer last.
  RecordingStatistics statistics_;
  std::unique_ptr<VideoChunkWriter> chunkWriter_;
  std::unique_ptr<SingleFileWriter> file_;
  std::unique_ptr<RecordingTimeline> timeline_;
  std::unique_ptr<ScreenCaptureStreamOutput> videoOutput_;
  std::unique_ptr<AudioStreamOutput> audioOutput_;
  std::unique_ptr<MicrophoneStreamOutput> microphoneOutput_;
  std::unique_ptr<DispatchQueue> videoQueue_;
  std::unique_ptr<DispatchQueue> audioQueue_;
  std::unique_ptr<DispatchQueue> microphoneQueue_;
  ScreenCaptureDelegate delegate_;
  std::unique_ptr<CaptureStream> stream_;
  std::unique_ptr<MicrophoneFallback> microphoneFallback_;
};

}  // namespace quillbeam
