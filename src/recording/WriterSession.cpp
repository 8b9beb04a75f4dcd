#include "recording/WriterSession.h"

#include <string>

#include "base/Text.h"

namespace quillbeam {

bool WriterSession::hasStarted() const {
  MutexLock lock(mutex_);
  return hasStarted_;
}

void WriterSession::startIfNeeded(MediaTime sourceTime) {
  {
    MutexLock lock(mutex_);
    if (hasStarted_) return;
    writer_.startSession(sourceTime);
    hasStarted_ = true;
  }
  out_.print("🎯 " + std::string(speaker_) +
             "AssetWriter session started at source time: " + decimal(sourceTime.seconds()));
}

}  // namespace quillbeam
