#pragma once

#include <optional>

#include "base/MediaTime.h"
#include "platform/linux/ffmpeg/FragmentIndex.h"

namespace quillbeam {

/// Turns what was collected of a fragmented file into the moov box of an ordinary one. Track and media headers,
/// handlers and sample descriptions are taken from the fragmented file's own moov; sample tables, edit lists and
/// durations are new.
class MovieIndex {
 public:
  /// `movie` is the moov box that `fragments` was created from. What lies behind `end` of the timeline is hidden.
  /// Both are referred to while the object lives.
  MovieIndex(ByteSpan movie, const FragmentIndex& fragments, std::optional<MediaTime> end);

  /// The whole moov box, for media that lies `shift` bytes further behind than where it was collected. Its size depends
  /// on `shift` only when that crosses 4 GiB.
  Bytes build(std::int64_t shift) const;

  /// Of the longest track.
  MediaTime duration() const;

 private:
  /// One track on the movie's timeline, in the track's ticks.
  struct Placement {
    std::int64_t emptyEdit = 0;   ///< how long after the movie's zero the track starts
    std::int64_t mediaStart = 0;  ///< where in the media its presentation starts
    std::int64_t length = 0;      ///< how much of it is presented
  };

  Placement place(const IndexedTrack& track) const;
  std::uint64_t movieTicks(const IndexedTrack& track, std::int64_t ticks) const;
  void writeMovieHeader(BoxWriter& writer, ByteSpan original) const;
  void writeTrack(BoxWriter& writer, ByteSpan original, const IndexedTrack& track, std::int64_t shift) const;
  void writeEdits(BoxWriter& writer, const IndexedTrack& track) const;
  void writeMedia(BoxWriter& writer, ByteSpan original, const IndexedTrack& track, std::int64_t shift) const;

  ByteSpan movie_;
  const FragmentIndex& fragments_;
  std::optional<MediaTime> end_;
  std::uint32_t timescale_;
};

}  // namespace quillbeam
