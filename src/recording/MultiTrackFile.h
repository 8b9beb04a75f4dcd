#pragma once

#include <memory>
#include <string>

#include "platform/Platform.h"
#include "recording/RecordingJournal.h"

namespace quillbeam {

/// The temporary file of an audio recording: system audio as its first track, the microphone as its second. From before
/// it exists it is in the journal with the path that it is to be mixed into, so that a process that dies loses nothing:
/// the next launch finishes and mixes it. Main queue; the inputs are fed by the receivers on their own queues.
class MultiTrackFile {
 public:
  /// Makes the writer and its tracks; nothing but the record is on disk yet.
  /// `AudioRecordingError::fileCreationFailed`, with the reason below it, when `output` cannot become a file or is
  /// being made from an interrupted recording; the writer's own errors unchanged.
  static Result<std::unique_ptr<MultiTrackFile>> create(Platform& platform, RecordingJournal& journal,
                                                        const Path& output);

  /// `AudioRecordingError::fileCreationFailed`, with the writer's reason below it, when the writer refuses.
  Result<void> startWriting();
  /// Problems are logged, not returned: what was written stays.
  Task<void> finish();
  /// Whether all that was recorded is in the file. If not, the next launch may find more in it.
  bool isFinished() const { return writer_->status() == AssetWriter::Status::completed; }
  /// Nobody needs it any more: it leaves the journal.
  void settle();
  /// A start that failed leaves no file and no record.
  void cancel();

  const Path& path() const { return path_; }
  AssetWriter& assetWriter() { return *writer_; }
  AssetWriterInput* audioInput() { return audioInput_; }
  AssetWriterInput* microphoneInput() { return microphoneInput_; }

 private:
  MultiTrackFile(Platform& platform, RecordingJournal& journal, Path path, std::unique_ptr<AssetWriter> writer);

  Platform& platform_;
  RecordingJournal& journal_;
  const Path path_;
  std::string journalId_;
  std::unique_ptr<AssetWriter> writer_;
  AssetWriterInput* audioInput_;
  AssetWriterInput* microphoneInput_;
};

}  // namespace quillbeam
