#pragma once

#include <cstdint>
#include <vector>

#include "base/Result.h"
#include "platform/linux/ffmpeg/Mp4Box.h"
#include "platform/linux/ffmpeg/SampleTable.h"

namespace quillbeam {

/// Bytes of a file, from `begin` up to but not including `end`.
struct FileRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// What is known of one track of a fragmented file.
struct IndexedTrack {
  std::uint32_t id = 0;
  std::uint32_t timescale = 0;  ///< ticks per second
  BoxType handler{};            ///< vide or soun
  /// Presentation of a sample = its time on the fragments' timeline + this, in ticks: minus the priming or reordering
  /// delay for a track that starts at once, positive for one that starts later.
  std::int64_t presentationShift = 0;
  std::int64_t firstDecodeTime = 0;  ///< of the first sample, on the fragments' timeline
  SampleTable samples;

  /// What the movie header says about samples whose fragment says nothing.
  struct Defaults {
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
    std::uint32_t flags = 0;
  } defaults;
};

/// Collects the index of a fragmented MP4 file from its movie header and its fragments, as they are written or found.
/// Only what comes whole and consistent is taken over. Malformed input is `CommonError::malformedData`.
class FragmentIndex {
 public:
  /// `movie` is a whole moov box with an mvex inside.
  static Result<FragmentIndex> create(ByteSpan movie);

  /// `fragment` is a whole moof box that lies at `offset` of the file and describes samples inside `media` (the payload
  /// of the mdat behind it). All or nothing.
  Result<void> add(ByteSpan fragment, std::uint64_t offset, FileRange media);

  const std::vector<IndexedTrack>& tracks() const { return tracks_; }
  std::size_t fragmentCount() const { return fragmentCount_; }

 private:
  struct Run;
  Result<void> parseTrackFragment(ByteSpan payload, std::uint64_t moofOffset, FileRange media, std::vector<Run>& runs);
  void take(const Run& run);

  std::vector<IndexedTrack> tracks_;
  std::size_t fragmentCount_ = 0;
};

}  // namespace quillbeam
