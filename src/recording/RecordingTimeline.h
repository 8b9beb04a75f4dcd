#pragma once

#include <optional>

#include "base/MediaTime.h"
#include "base/Mutex.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"
#include "recording/WriterSession.h"

namespace quillbeam {

/// The one timeline of a recording, shared by its three receivers: zero is the first complete video frame. Every
/// decision is taken once, by the first who comes. Any thread.
class RecordingTimeline {
 public:
  enum class Baseline {
    firstVideoFrame,  ///< sound waits for the first picture
    ownFirstSample,   ///< no pictures expected: each track counts from its own first sample
  };

  RecordingTimeline(StandardOutput& out, AssetWriter& writer, Baseline baseline)
      : out_(out), session_(out, writer, ""), baseline_(baseline) {}

  bool expectsVideo() const { return baseline_ == Baseline::firstVideoFrame; }
  std::optional<MediaTime> recordingBaseTime() const;
  bool assetWriterSessionStarted() const { return session_.hasStarted(); }

  void setRecordingBaseTimeIfNeeded(MediaTime time);
  void startAssetWriterSessionIfNeeded(MediaTime sourceTime) { session_.startIfNeeded(sourceTime); }

 private:
  StandardOutput& out_;
  WriterSession session_;
  const Baseline baseline_;
  mutable Mutex mutex_;
  std::optional<MediaTime> recordingBaseTime_ GUARDED_BY(mutex_);
};

}  // namespace quillbeam
