#include "platform/linux/ffmpeg/TrackStarts.h"

#include <algorithm>

namespace quillbeam {

TrackStarts::TrackStarts(const std::vector<std::int32_t>& timescales) {
  for (const std::int32_t timescale : timescales) tracks_.push_back({.timescale = timescale});
}

void TrackStarts::pushed(std::size_t index, const EncodedPacket& packet) {
  Track& track = tracks_[index];
  track.packets = std::min(track.packets + 1, 2);
  furthest_ = std::max(furthest_, MediaTime(packet.decodeTime, track.timescale));
}

std::vector<std::size_t> TrackStarts::missing(MediaTime lead) const {
  std::vector<std::size_t> missing;
  if (furthest_ < lead) return missing;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (tracks_[i].packets < 2 && !tracks_[i].ended) missing.push_back(i);
  }
  return missing;
}

}  // namespace quillbeam
