#pragma once

#include <array>
#include <deque>
#include <map>
#include <vector>

#include "platform/capture/ScreenCapture.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

struct MergedSample {
  OutputType type = OutputType::screen;
  SampleBuffer sample;
};

/// Brings pictures and sounds, which arrive at different times, into the order of their time stamps. A picture waits
/// until every sound track has delivered beyond it, a block until the other tracks have: what comes later can then only
/// be younger. At equal times the picture goes first. Without sound tracks nothing waits.
///
/// A track that stops delivering holds the others for `patience` at most; its blocks that come after that leave at
/// once, late and out of order, for a gap in the sound would be worse.
class StreamMerger {
 public:
  explicit StreamMerger(MediaTime patience) : patience_(patience) {}

  /// A sound track whose first block starts at `from`. Blocks are contiguous.
  void addSoundTrack(OutputType type, MediaTime from);
  /// Samples of one type come in time-stamp order; sound only of tracks that were added.
  void add(OutputType type, SampleBuffer sample);

  /// Everything that nothing older can follow, in order.
  std::vector<MergedSample> release(MediaTime now);
  /// Everything, in order.
  std::vector<MergedSample> releaseAll();

 private:
  using Lane = std::deque<SampleBuffer>;
  Lane* oldestLane();
  std::vector<MergedSample> releaseUpTo(MediaTime horizon);  ///< an invalid horizon is no limit

  MediaTime patience_;
  std::map<OutputType, MediaTime> heardUntil_;  ///< per sound track, the end of its last block
  std::array<Lane, 3> lanes_;                   ///< by OutputType
};

}  // namespace quillbeam
