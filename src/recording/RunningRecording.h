#pragma once

#include <optional>

#include "base/Task.h"
#include "base/Value.h"
#include "platform/Files.h"
#include "recording/RecordingReport.h"

namespace quillbeam {

/// A recording under way, whatever it records: owns everything that runs for it, and destroying it leaves nothing
/// running. Main queue.
///
///     made → start ok → running → stop → ended
///              └ failed: everything opened is closed, the file is gone
class RunningRecording {
 public:
  virtual ~RunningRecording() = default;

  virtual Task<void> start() = 0;
  /// Stops capturing, finishes the file, then its upload. The file's path; `ChunkUploadError` when the file is complete
  /// and its upload is not.
  virtual Task<std::optional<Path>> stop() = 0;
  /// The process is about to end: a stop that begins after this does not wait for the service, and none waits long for
  /// anything else. What is left undone is found by the next launch.
  virtual void hurry() = 0;
  virtual RecordingReport report() = 0;
  /// What it knows better than whoever runs it, as entries of the status that the UI layer asks for.
  virtual ValueMap getRecordingStatus() const { return {}; }

 protected:
  enum class UploadEnd { awaited, leftForLater };
};

}  // namespace quillbeam
