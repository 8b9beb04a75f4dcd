#pragma once

#include <string_view>

#include "base/MediaTime.h"
#include "base/Mutex.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// A writer's session, which starts once, whichever receiver asks first. Any thread.
class WriterSession {
 public:
  /// `speaker` begins what is said in the log: "", or "AudioSessionRecorder: ".
  WriterSession(StandardOutput& out, AssetWriter& writer, std::string_view speaker)
      : out_(out), writer_(writer), speaker_(speaker) {}

  bool hasStarted() const;
  void startIfNeeded(MediaTime sourceTime);

 private:
  StandardOutput& out_;
  AssetWriter& writer_;
  const std::string_view speaker_;
  mutable Mutex mutex_;
  bool hasStarted_ GUARDED_BY(mutex_) = false;
};

}  // namespace quillbeam
