#include "platform/sim/SimAudioExport.h"

#include <algorithm>
#include <cmath>

#include "base/Check.h"

namespace quillbeam {

namespace {

/// Between two looks at whether it was cancelled.
constexpr Duration longestStep = std::chrono::milliseconds{100};

}  // namespace

Task<void> SimAudioExport::run() {
  QB_CHECK(status_ == Status::unknown);
  status_ = Status::exporting;
  Result<void> mixed = co_await mixAll();
  if (mixed) {
    status_ = Status::completed;
  } else if (mixed.error().is(CommonError::cancelled)) {
    status_ = Status::cancelled;
  } else {
    status_ = Status::failed;
    error_ = mixed.error();
  }
  co_return mixed;
}

Task<void> SimAudioExport::mixAll() {
  CO_TRY(const MediaTime duration, length());
  const auto total = Duration(std::llround(1e9 * duration.seconds() / exporter_.speed_));
  const auto steps = std::max<std::int64_t>(2, total / longestStep + 1);
  for (std::int64_t step = 1; step <= steps; ++step) {
    CO_TRY_VOID(co_await delay(exporter_.dispatch_.main(), total / steps));
    if (cancelled_) co_return CommonError::cancelled;
    progress_ = static_cast<double>(step) / static_cast<double>(steps);
    if (auto failure = exporter_.takeFailure(progress_)) co_return *std::move(failure);
  }
  co_return exporter_.write(mix_, duration);
}

Result<MediaTime> SimAudioExport::length() const {
  TRY(const auto tracks, exporter_.audioTracks(mix_.source));
  if (mix_.tracks.empty()) return AudioExporterError::noSuchTrack;
  MediaTime longest = MediaTime::zero();
  for (const auto& track : mix_.tracks) {
    if (track.index < 0 || track.index >= std::ssize(tracks)) return AudioExporterError::noSuchTrack;
    longest = std::max(longest, tracks[static_cast<std::size_t>(track.index)].duration);
  }
  return longest;
}

}  // namespace quillbeam
