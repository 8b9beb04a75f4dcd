#include "recording/RecordingTimeline.h"

#include "base/Text.h"

namespace quillbeam {

std::optional<MediaTime> RecordingTimeline::recordingBaseTime() const {
  MutexLock lock(mutex_);
  return recordingBaseTime_;
}

void RecordingTimeline::setRecordingBaseTimeIfNeeded(MediaTime time) {
  {
    MutexLock lock(mutex_);
    if (recordingBaseTime_) return;
    recordingBaseTime_ = time;
  }
  out_.print("🎯 Global recording base time set: " + decimal(time.seconds()) + "s");
}

}  // namespace quillbeam
