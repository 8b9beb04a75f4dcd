#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "base/MediaTime.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"

namespace quillbeam {

/// Sorts the packets of several tracks into fragments. A fragment holds what is decoded in one interval of the
/// timeline; it is ready when every track has gone past its end. A track that falls far behind holds nobody up: its
/// packets go into the fragments that are cut when they come. No fragment is cut before all tracks have started or
/// ended, because the file's header needs to know where each of them starts. Each packet's duration is set from its
/// successor. One thread at a time.
class Interleaver {
 public:
  struct TrackPacket {
    std::size_t track = 0;
    EncodedPacket packet;
  };
  struct Timing {
    MediaTime fragment{1, 1};  ///< how much of the timeline a fragment holds
    MediaTime patience{2, 1};  ///< how far a track may fall behind the others and still be waited for
    /// The track that each fragment has to start with a key packet, if it has any of it. It has one at the first packet
    /// at or after each fragment's start; when it falls behind, only whole groups of it are taken.
    std::optional<std::size_t> keyTrack = std::nullopt;
  };

  /// `timescales`: one per track. Tracks count from zero.
  explicit Interleaver(std::vector<std::int32_t> timescales) : Interleaver(std::move(timescales), Timing()) {}
  Interleaver(std::vector<std::int32_t> timescales, Timing timing);

  void push(std::size_t track, EncodedPacket packet);
  /// No more packets: the last one lasts until `end` (its own duration when nullopt or before its start).
  void endTrack(std::size_t track, std::optional<MediaTime> end);
  /// Forgets the packets of a track, not yet taken, that are presented at or after `end`. Only for tracks whose packets
  /// don't refer to later ones.
  void cutTrack(std::size_t track, MediaTime end);

  /// The first packet of each track that has any; nullopt until all tracks have started or ended. Before the first
  /// fragment is taken.
  std::optional<std::vector<TrackPacket>> firstPackets() const;
  /// Whether the next fragment is complete. Once all tracks have ended: whether anything is left.
  bool isFragmentReady() const;
  /// The next fragment's packets, in decoding order over all tracks; none when all tracks jumped over its interval.
  std::vector<TrackPacket> takeFragment();

 private:
  struct Track {
    std::int32_t timescale = 1;
    std::deque<EncodedPacket> packets;  ///< the last one still waits for its duration, unless the track has ended
    std::optional<MediaTime> reached;   ///< decoding time of the newest packet
    bool started = false;               ///< has had a packet with a successor
    bool ended = false;
  };

  MediaTime furthest() const;
  bool holdsUp(const Track& track, MediaTime furthest) const;
  bool isTakeable(std::size_t index) const;
  /// The track whose next packet is decoded first; nullopt when none has one that is complete.
  std::optional<std::size_t> earliestTrack() const;
  MediaTime nextTime(std::size_t track) const;

  std::vector<Track> tracks_;
  Timing timing_;
  MediaTime boundary_;
};

}  // namespace quillbeam
