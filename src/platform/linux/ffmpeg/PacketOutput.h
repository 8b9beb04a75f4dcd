#pragma once

#include <optional>

#include "base/MediaTime.h"
#include "base/Result.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"

namespace quillbeam {

/// Where the packets of all tracks go; several may take the same ones. Tracks count from zero, each track's packets
/// come in decoding order. One thread at a time.
class PacketOutput {
 public:
  virtual ~PacketOutput() = default;

  virtual void push(std::size_t track, EncodedPacket packet) = 0;
  /// No more packets: the last one lasts until `end` (its own duration when nullopt).
  virtual void endTrack(std::size_t track, std::optional<MediaTime> end) = 0;
  /// Forgets what is presented at or after `end` and is not written yet. Only for sound.
  virtual void cutTrack(std::size_t track, MediaTime end) = 0;

  /// Writes what is complete; whether there was anything.
  virtual Result<bool> write() = 0;
  /// All tracks have ended and are written. `end`: the session's.
  virtual Result<void> finish(std::optional<MediaTime> end) = 0;
  /// Nothing more will come because something failed: makes the best of what there is.
  virtual void salvage(std::optional<MediaTime> end) = 0;
  /// Removes what was written.
  virtual void discard() = 0;
};

}  // namespace quillbeam
