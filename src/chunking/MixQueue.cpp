#include "chunking/MixQueue.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

void MixQueue::append(AudioChunk chunk) {
  latestEnd_ = std::max(latestEnd_, chunk.endFrame());
  // Nearly always the last one: looked for from there.
  auto place = chunks_.end();
  while (place != chunks_.begin() && std::prev(place)->startFrame > chunk.startFrame) --place;
  chunks_.insert(place, std::move(chunk));
}

std::size_t MixQueue::keepNewest(std::size_t count) {
  const std::size_t dropped = chunks_.size() > count ? chunks_.size() - count : 0;
  if (dropped == 0) return 0;
  chunks_.erase(chunks_.begin(), chunks_.begin() + static_cast<std::ptrdiff_t>(dropped));
  latestEnd_ = INT64_MIN;
  for (const AudioChunk& chunk : chunks_) latestEnd_ = std::max(latestEnd_, chunk.endFrame());
  return dropped;
}

std::int64_t MixQueue::end(std::int64_t atLeast) const { return std::max(atLeast, latestEnd_); }

void MixQueue::addInto(std::span<float> block, std::int64_t startFrame, float gain) {
  const std::int64_t endFrame = startFrame + static_cast<std::int64_t>(block.size());
  auto chunk = chunks_.begin();
  for (; chunk != chunks_.end() && chunk->startFrame < endFrame; ++chunk) {
    const std::int64_t from = std::max(startFrame, chunk->startFrame);
    const std::int64_t to = std::min(endFrame, chunk->endFrame());
    if (from >= to) continue;
    const float* samples = chunk->data.data() + (from - chunk->startFrame);
    float* mixed = block.data() + (from - startFrame);
    for (std::int64_t frame = 0; frame < to - from; ++frame) mixed[frame] += samples[frame] * gain;
  }
  // What reaches past the block stays where it is; it is never added twice because blocks follow one another.
  const auto isDone = [&](const AudioChunk& each) { return each.endFrame() <= endFrame; };
  chunks_.erase(std::remove_if(chunks_.begin(), chunk, isDone), chunk);
}

}  // namespace quillbeam
