#include "platform/linux/capture/StreamMerger.h"

#include <algorithm>
#include <ranges>
#include <utility>

#include "base/Check.h"

namespace quillbeam {

void StreamMerger::addSoundTrack(OutputType type, MediaTime from) { heardUntil_[type] = from; }

void StreamMerger::add(OutputType type, SampleBuffer sample) {
  if (type != OutputType::screen) {
    const auto track = heardUntil_.find(type);
    QB_CHECK(track != heardUntil_.end());
    track->second = sample.presentationTime() + sample.duration();
  }
  lanes_[static_cast<std::size_t>(type)].push_back(std::move(sample));
}

std::vector<MergedSample> StreamMerger::release(MediaTime now) {
  if (heardUntil_.empty()) return releaseAll();
  const auto slowest = std::ranges::min(std::views::values(heardUntil_));
  return releaseUpTo(std::max(slowest, now - patience_));
}

std::vector<MergedSample> StreamMerger::releaseAll() { return releaseUpTo(MediaTime::invalid()); }

std::vector<MergedSample> StreamMerger::releaseUpTo(MediaTime horizon) {
  std::vector<MergedSample> released;
  for (auto* lane = oldestLane(); lane != nullptr; lane = oldestLane()) {
    if (horizon.isValid() && lane->front().presentationTime() > horizon) break;
    released.push_back({static_cast<OutputType>(lane - lanes_.data()), std::move(lane->front())});
    lane->pop_front();
  }
  return released;
}

StreamMerger::Lane* StreamMerger::oldestLane() {
  Lane* oldest = nullptr;
  for (auto& lane : lanes_) {
    if (lane.empty()) continue;
    // Strictly older: at equal times the picture, which is asked first, wins.
    const bool isOlder = oldest == nullptr || lane.front().presentationTime() < oldest->front().presentationTime();
    if (isOlder) oldest = &lane;
  }
  return oldest;
}

}  // namespace quillbeam
