#include "recording/RecordingTimeline.h"

#include "base/Text.h"

namespace quillbeam {

std::optional<MediaTime> RecordingTimeline::recordingBaseTime() const {
  MutexLock lock(mutex_);
  return recordingBaseTime_;
}

bool RecordingTimeline::assetWriterSessionStarted() const {
  MutexLock lock(mutex_);
  return assetWriterSessionStarted_;
}

void RecordingTimeline::setRecordingBaseTimeIfNeeded(MediaTime time) {
  {
    MutexLock lock(mutex_);
    if (recordingBaseTime_) return;
    recordingBaseTime_ = time;
  }
  out_.print("🎯 Global recording base time set: " + decimal(time.seconds()) + "s");
}

void RecordingTimeline::startAssetWriterSessionIfNeeded(MediaTime sourceTime) {
  {
    MutexLock lock(mutex_);
    if (assetWriterSessionStarted_) return;
    writer_.startSession(sourceTime);
    assetWriterSessionStarted_ = true;
  }
  out_.print("🎯 AssetWriter session started at source time: " + decimal(sourceTime.seconds()));
}

}  // namespace quillbeam
