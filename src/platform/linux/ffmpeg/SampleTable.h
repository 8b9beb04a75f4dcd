#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/ffmpeg/Mp4Box.h"

namespace quillbeam {

/// One coded picture or sound frame as an index knows it. Times in ticks of its track.
struct IndexedSample {
  std::uint32_t size = 0;
  std::uint32_t duration = 0;          ///< to the next sample in decoding order
  std::int32_t compositionOffset = 0;  ///< presentation minus decoding time
  bool isSync = true;
};

/// What an ordinary MP4 file stores about a track's samples, collected while they are written: four bytes per sample
/// plus what changes from one to the next. A value, confined to whoever owns it.
class SampleTable {
 public:
  void add(const IndexedSample& sample);
  /// The last `sampleCount` samples added lie one behind the other in the file, from `offset` on.
  void addChunk(std::uint64_t offset, std::uint32_t sampleCount);
  /// The last sample lasts `ticks` longer than it was added with (shorter when negative, but not below zero).
  void extendLast(std::int64_t ticks);

  std::size_t sampleCount() const { return sizes_.size(); }
  std::uint64_t duration() const { return duration_; }  ///< of all samples together

  /// Writes stts, stss, ctts, stsc, stsz and stco (or co64), each chunk's offset moved by `shift`.
  void write(BoxWriter& writer, std::int64_t shift) const;

 private:
  template <class Value>
  struct Run {
    std::uint32_t count = 0;
    Value value{};
  };
  struct Chunk {
    std::uint64_t offset = 0;
    std::uint32_t sampleCount = 0;
  };

  void addSync(bool isSync);
  void writeTimes(BoxWriter& writer) const;
  void writeChunkSizes(BoxWriter& writer) const;
  void writeChunkOffsets(BoxWriter& writer, std::int64_t shift) const;

  std::vector<std::uint32_t> sizes_;
  std::vector<Run<std::uint32_t>> durations_;
  std::vector<Run<std::int32_t>> compositionOffsets_;
  std::vector<std::uint32_t> syncSamples_;  ///< numbers from 1; empty while every sample is one
  bool everySampleIsSync_ = true;
  std::vector<Chunk> chunks_;
  std::uint64_t duration_ = 0;
};

}  // namespace quillbeam
