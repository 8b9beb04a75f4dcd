#pragma once

#include <algorithm>
#include <optional>

#include "base/MediaTime.h"
#include "base/Mutex.h"

namespace quillbeam {

/// Where the written timeline starts and ends on the source's. Any thread.
class SessionTimes {
 public:
  void start(MediaTime sourceTime) {
    MutexLock lock(mutex_);
    if (!start_) start_ = sourceTime;
  }
  void end(MediaTime sourceTime) {
    MutexLock lock(mutex_);
    end_ = sourceTime;
  }

  /// On the written timeline; nullopt before the session has started.
  std::optional<MediaTime> relative(MediaTime sourceTime) const {
    MutexLock lock(mutex_);
    if (!start_) return std::nullopt;
    return sourceTime - *start_;
  }
  /// The end on the written timeline, not before its zero; nullopt while it is open.
  std::optional<MediaTime> relativeEnd() const {
    MutexLock lock(mutex_);
    if (!start_ || !end_) return std::nullopt;
    return std::max(*end_ - *start_, MediaTime::zero());
  }

 private:
  mutable Mutex mutex_;
  std::optional<MediaTime> start_ GUARDED_BY(mutex_);
  std::optional<MediaTime> end_ GUARDED_BY(mutex_);
};

}  // namespace quillbeam
