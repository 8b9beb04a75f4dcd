#include "chunking/MixQueue.h"

#include <algorithm>

namespace quillbeam {

std::size_t MixQueue::keepNewest(std::size_t count) {
  const std::size_t dropped = chunks_.size() > count ? chunks_.size() - count : 0;
  chunks_.erase(chunks_.begin(), chunks_.begin() + static_cast<std::ptrdiff_t>(dropped));
  return dropped;
}

std::int64_t MixQueue::end(std::int64_t atLeast) const {
  for (const AudioChunk& chunk : chunks_) atLeast = std::max(atLeast, chunk.endFrame());
  return atLeast;
}

void MixQueue::addInto(std::span<float> block, std::int64_t startFrame, float gain) {
  const std::int64_t endFrame = startFrame + static_cast<std::int64_t>(block.size());
  for (AudioChunk& chunk : chunks_) {
    const std::int64_t from = std::max(startFrame, chunk.startFrame);
    const std::int64_t to = std::min(endFrame, chunk.endFrame());
    if (from >= to) continue;
    const float* samples = chunk.data.data() + (from - chunk.startFrame);
    float* mixed = block.data() + (from - startFrame);
    for (std::int64_t frame = 0; frame < to - from; ++frame) mixed[frame] += samples[frame] * gain;
  }
  // What reaches past the block stays where it is; it is never added twice because blocks follow one another.
  std::erase_if(chunks_, [&](const AudioChunk& chunk) { return chunk.endFrame() <= endFrame; });
}

}  // namespace quillbeam
