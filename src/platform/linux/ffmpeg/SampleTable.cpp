#include "platform/linux/ffmpeg/SampleTable.h"

#include <algorithm>
#include <numeric>

namespace quillbeam {

namespace {

template <class Runs, class Value>
void extendRuns(Runs& runs, Value value) {
  if (runs.empty() || runs.back().value != value) runs.push_back({0, value});
  ++runs.back().count;
}

}  // namespace

void SampleTable::add(const IndexedSample& sample) {
  sizes_.push_back(sample.size);
  extendRuns(durations_, sample.duration);
  extendRuns(compositionOffsets_, sample.compositionOffset);
  addSync(sample.isSync);
  duration_ += sample.duration;
}

void SampleTable::addSync(bool isSync) {
  const auto number = static_cast<std::uint32_t>(sizes_.size());
  if (everySampleIsSync_ && !isSync) {
    everySampleIsSync_ = false;
    syncSamples_.resize(number - 1);
    std::iota(syncSamples_.begin(), syncSamples_.end(), 1);
  } else if (!everySampleIsSync_ && isSync) {
    syncSamples_.push_back(number);
  }
}

void SampleTable::addChunk(std::uint64_t offset, std::uint32_t sampleCount) {
  if (sampleCount > 0) chunks_.push_back({offset, sampleCount});
}

void SampleTable::extendLast(std::int64_t ticks) {
  if (durations_.empty() || ticks == 0) return;
  const std::uint32_t old = durations_.back().value;
  const auto extended = static_cast<std::uint32_t>(std::clamp<std::int64_t>(old + ticks, 0, 0xFFFF'FFFF));
  if (--durations_.back().count == 0) durations_.pop_back();
  extendRuns(durations_, extended);
  duration_ += extended;
  duration_ -= old;
}

void SampleTable::write(BoxWriter& writer, std::int64_t shift) const {
  writeTimes(writer);
  writeChunkSizes(writer);
  writer.fullBox(boxType("stsz"), 0, [this](BoxWriter& box) {
    box.u32(0);
    box.u32(static_cast<std::uint32_t>(sizes_.size()));
    for (const std::uint32_t size : sizes_) box.u32(size);
  });
  writeChunkOffsets(writer, shift);
}

void SampleTable::writeTimes(BoxWriter& writer) const {
  writer.fullBox(boxType("stts"), 0, [this](BoxWriter& box) {
    box.u32(static_cast<std::uint32_t>(durations_.size()));
    for (const auto& run : durations_) {
      box.u32(run.count);
      box.u32(run.value);
    }
  });
  if (!everySampleIsSync_) {
    writer.fullBox(boxType("stss"), 0, [this](BoxWriter& box) {
      box.u32(static_cast<std::uint32_t>(syncSamples_.size()));
      for (const std::uint32_t number : syncSamples_) box.u32(number);
    });
  }
  const auto isZero = [](const auto& run) { return run.value == 0; };
  if (std::ranges::all_of(compositionOffsets_, isZero)) return;
  const bool isSigned = std::ranges::any_of(compositionOffsets_, [](const auto& run) { return run.value < 0; });
  writer.fullBox(boxType("ctts"), isSigned ? 1 : 0, [this](BoxWriter& box) {
    box.u32(static_cast<std::uint32_t>(compositionOffsets_.size()));
    for (const auto& run : compositionOffsets_) {
      box.u32(run.count);
      box.u32(static_cast<std::uint32_t>(run.value));
    }
  });
}

void SampleTable::writeChunkSizes(BoxWriter& writer) const {
  std::vector<Run<std::uint32_t>> runs;
  for (const Chunk& chunk : chunks_) extendRuns(runs, chunk.sampleCount);
  writer.fullBox(boxType("stsc"), 0, [&runs](BoxWriter& box) {
    box.u32(static_cast<std::uint32_t>(runs.size()));
    std::uint32_t firstChunk = 1;
    for (const auto& run : runs) {
      box.u32(firstChunk);
      box.u32(run.value);
      box.u32(1);
      firstChunk += run.count;
    }
  });
}

void SampleTable::writeChunkOffsets(BoxWriter& writer, std::int64_t shift) const {
  const auto isFar = [shift](const Chunk& chunk) { return chunk.offset + shift > 0xFFFF'FFFF; };
  const bool wide = std::ranges::any_of(chunks_, isFar);
  writer.fullBox(wide ? boxType("co64") : boxType("stco"), 0, [&](BoxWriter& box) {
    box.u32(static_cast<std::uint32_t>(chunks_.size()));
    for (const Chunk& chunk : chunks_) {
      const std::uint64_t offset = chunk.offset + shift;
      wide ? box.u64(offset) : box.u32(static_cast<std::uint32_t>(offset));
    }
  });
}

}  // namespace quillbeam
