#pragma once

#include <memory>
#include <string_view>

#include "platform/Files.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"
#include "recording/MacRecordingConfig.h"

namespace quillbeam {

/// The recording's one complete local file: a writer with a video track and a track per sound source that the
/// configuration includes. Main queue; the inputs are fed by the receivers on their own queues.
class SingleFileWriter {
 public:
  /// Makes the writer and its tracks; nothing is on disk yet. The writer's own errors, unchanged.
  static Result<std::unique_ptr<SingleFileWriter>> create(MediaWriters& writers, StandardOutput& out, const Path& path,
                                                          Resolution resolution, const RecordingConfig& config);

  /// `RecordingError::fileCreationFailed`, with the writer's reason below it, when the writer refuses.
  Result<void> startWriting();
  /// Marks the tracks as finished and finishes the file. Problems are logged, not returned: what was written stays.
  Task<void> finish(Files& files);
  /// A start that failed leaves no file.
  void cancel() { writer_->cancelWriting(); }

  AssetWriter& assetWriter() { return *writer_; }
  const AssetWriter& assetWriter() const { return *writer_; }
  AssetWriterInput* videoInput() { return videoInput_; }
  AssetWriterInput* audioInput() { return audioInput_; }
  AssetWriterInput* microphoneInput() { return microphoneInput_; }

 private:
  SingleFileWriter(StandardOutput& out, Path path, std::unique_ptr<AssetWriter> writer);
  void addTracks(Resolution resolution, const RecordingConfig& config);
  void reportEnd() const;
  void reportFile(Files& files) const;

  StandardOutput& out_;
  const Path path_;
  std::unique_ptr<AssetWriter> writer_;
  AssetWriterInput* videoInput_ = nullptr;
  AssetWriterInput* audioInput_ = nullptr;
  AssetWriterInput* microphoneInput_ = nullptr;
};

}  // namespace quillbeam
