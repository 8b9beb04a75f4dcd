#pragma once

#include <optional>
#include <vector>

#include "base/MediaTime.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"

namespace quillbeam {

/// Sees which tracks have not begun while others go on. Nothing can be written before every track has begun or ended,
/// because the file's header needs to know where each of them starts. One thread at a time.
class TrackStarts {
 public:
  /// `timescales`: one per track.
  explicit TrackStarts(const std::vector<std::int32_t>& timescales);

  void pushed(std::size_t track, const EncodedPacket& packet);
  void ended(std::size_t track) { tracks_[track].ended = true; }
  /// Tracks that have not begun while another one is `lead` ahead. A track has begun with its second packet, which
  /// gives the first one its duration.
  std::vector<std::size_t> missing(MediaTime lead) const;

 private:
  struct Track {
    std::int32_t timescale = 1;
    int packets = 0;
    bool ended = false;
  };

  std::vector<Track> tracks_;
  MediaTime furthest_ = MediaTime::zero();
};

}  // namespace quillbeam
