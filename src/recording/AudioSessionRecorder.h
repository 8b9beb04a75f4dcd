#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Date.h"
#include "chunking/AudioChunkWriter.h"
#include "platform/Platform.h"
#include "recording/AudioMicrophoneStreamOutput.h"
#include "recording/AudioOnlyStreamOutput.h"
#include "recording/AudioScreenCaptureDelegate.h"
#include "recording/AudioScreenCaptureStreamOutput.h"
#include "recording/MicrophoneFallback.h"
#include "recording/MultiTrackFile.h"
#include "recording/MultiTrackMix.h"
#include "recording/RunningRecording.h"
#include "recording/WriterSession.h"

namespace quillbeam {

/// One recording of sound alone: what the computer plays and the microphone, always both, as two tracks of a temporary
/// file, mixed into one file at the end. The stream that delivers the sound needs pictures too; the smallest there are
/// are asked for and thrown away. Main queue; the receivers live on their three sample queues.
///
///     made → recording → stopping → post-processing → ended
///       └ failed               a failed mix keeps the temporary file, and names it
class AudioSessionRecorder final : public RunningRecording {
 public:
  /// `chunkWriter`, if any, gets everything that is captured.
  AudioSessionRecorder(Platform& platform, RecordingJournal& journal, Path filePath,
                       std::unique_ptr<AudioChunkWriter> chunkWriter);
  ~AudioSessionRecorder() override;

  Task<void> start() override { return startAudioRecording(); }
  Task<std::optional<Path>> stop() override;
  void hurry() override;
  RecordingReport report() override;
  ValueMap getRecordingStatus() const override;

  /// `AudioRecordingError`s, or the error of the port that failed, unchanged.
  Task<void> startAudioRecording();
  /// The finished file's path; nullopt when nothing was being recorded. `AudioRecordingError::postProcessingFailed`;
  /// `ChunkUploadError` when the file is complete and its upload is not.
  Task<std::optional<Path>> stopAudioRecording();

 private:
  Task<void> openFileAndCapture();
  Task<void> startCapture();
  StreamConfiguration streamConfiguration();
  void makeReceivers();
  std::function<void(const SampleBuffer&)> chunkSink(void (AudioChunkWriter::*append)(SampleBuffer));
  Result<void> addOutputs();
  Result<void> startMicrophoneFallback();
  void startSessions();
  Task<void> stopCapture();
  void finalizeReceivers();
  Task<void> finishChunks(UploadEnd uploadEnd);
  Task<void> mixTracks();
  Error mixFailed(const Error& cause);
  void limitMix();
  std::int64_t fileBytes();
  void print(std::string_view line) const { platform_.standardOutput.print(line); }

  Platform& platform_;
  RecordingJournal& journal_;
  const Path filePath_;
  bool isRecording_ = false;
  bool isPostProcessing_ = false;
  bool isHurried_ = false;
  bool fileIsComplete_ = false;
  std::optional<Date> recordingStartTime_;
  std::optional<Error> captureEnded_;
  std::optional<Error> mixProblem_;

  // Each line below may use the ones above it; they go in reverse: stream and microphone first, then the queues (which
  // run what is left on them), then the receivers, the writer last.
  std::unique_ptr<AudioChunkWriter> chunkWriter_;
  std::unique_ptr<MultiTrackFile> file_;
  std::unique_ptr<WriterSession> session_;
  std::unique_ptr<AudioScreenCaptureStreamOutput> videoOutput_;
  std::unique_ptr<AudioOnlyStreamOutput> audioOutput_;
  std::unique_ptr<AudioMicrophoneStreamOutput> microphoneOutput_;
  std::unique_ptr<DispatchQueue> videoQueue_;
  std::unique_ptr<DispatchQueue> audioQueue_;
  std::unique_ptr<DispatchQueue> microphoneQueue_;
  AudioScreenCaptureDelegate delegate_;
  std::unique_ptr<CaptureStream> stream_;
  std::unique_ptr<MicrophoneFallback> microphoneFallback_;
  std::optional<MultiTrackMix> mix_;
  TimerHandle mixLimit_;
};

}  // namespace quillbeam
