#pragma once

#include <memory>

#include "platform/Platform.h"
#include "platform/media/AudioExporter.h"

namespace quillbeam {

/// The end of an audio recording: the tracks of its temporary file summed into the one file that was asked for, the
/// first (system audio) as it is, every other (the microphone) louder. Main queue; the work happens elsewhere.
class MultiTrackMix {
 public:
  MultiTrackMix(Platform& platform, Path multiTrackFile, Path output)
      : platform_(platform), multiTrackFile_(std::move(multiTrackFile)), output_(std::move(output)) {}

  /// Once. The output is complete and durable and the multi-track file is gone; or an error, both files as they were:
  /// `AudioRecordingError::postProcessingFailed` when the multi-track file is missing, `nothingRecorded` when its
  /// tracks hold no sound, `CommonError::cancelled`, or the exporter's.
  Task<void> run();
  void cancel();
  double progress() const;  ///< 0…1

  /// Whether mixing the same file again might do better: for want of space, of a place to write or of time.
  static bool isWorthAnotherTry(const Error& error);

 private:
  Task<AudioMix> plan();
  AudioMix mixOf(std::size_t trackCount) const;
  Result<void> outcome() const;
  Error failed(const Error& error) const;
  void print(std::string_view line) const { platform_.standardOutput.print(line); }

  Platform& platform_;
  const Path multiTrackFile_;
  const Path output_;
  std::unique_ptr<AudioExport> export_;
  bool isCancelled_ = false;
  double progress_ = 0;
};

}  // namespace quillbeam
