#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace quillbeam {

/// Mono samples at 48 kHz with their place on the mix timeline.
struct AudioChunk {
  std::vector<float> data;
  std::int64_t startFrame = 0;

  std::int64_t frameCount() const { return static_cast<std::int64_t>(data.size()); }
  std::int64_t endFrame() const { return startFrame + frameCount(); }
};

/// The sound of one source that waits to be mixed. Chunks may overlap (they are summed) and come out of order. Cheap
/// however much waits: hours of it when the other source never comes. Not thread-safe.
class MixQueue {
 public:
  void append(AudioChunk chunk);
  std::size_t size() const { return chunks_.size(); }
  /// Drops the earliest until `count` are left; how many those were.
  std::size_t keepNewest(std::size_t count);
  /// The end of the latest chunk, but not less than `atLeast`.
  std::int64_t end(std::int64_t atLeast) const;
  /// Adds what lies in [startFrame, startFrame + block.size()), times `gain`, and forgets all before the block's end.
  void addInto(std::span<float> block, std::int64_t startFrame, float gain);

 private:
  std::deque<AudioChunk> chunks_;  ///< by where they start
  std::int64_t latestEnd_ = INT64_MIN;
};

}  // namespace quillbeam
