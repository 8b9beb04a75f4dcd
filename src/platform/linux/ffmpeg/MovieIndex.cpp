#include "platform/linux/ffmpeg/MovieIndex.h"

#include <algorithm>
#include <array>

namespace quillbeam {

namespace {

/// Copies mvhd, tkhd or mdhd as version 1 (64-bit durations) with another duration, and another timescale where the
/// box has one. `between` is what lies between the creation times and the duration.
void writeHeader(BoxWriter& writer, BoxType type, ByteSpan payload, std::span<const std::uint32_t> between,
                 std::uint64_t duration) {
  BoxReader reader(payload);
  const std::uint32_t versionAndFlags = reader.u32();
  const bool wide = versionAndFlags >> 24 == 1;
  const std::uint64_t created = wide ? reader.u64() : reader.u32();
  const std::uint64_t modified = wide ? reader.u64() : reader.u32();
  const std::size_t rest = std::min<std::size_t>(payload.size(), (wide ? 28 : 16) + 4 * between.size());
  writer.box(type, [&](BoxWriter& box) {
    box.u32(0x0100'0000 | (versionAndFlags & 0xFF'FFFF));
    box.u64(created);
    box.u64(modified);
    for (const std::uint32_t word : between) box.u32(word);
    box.u64(duration);
    box.raw(payload.subspan(rest));
  });
}

/// The boxes inside a box that the fragment index has found to be sound.
std::vector<BoxView> boxesOf(ByteSpan payload) { return parseBoxes(payload).value_or(std::vector<BoxView>()); }

/// A sound track's rate lets a cut be exact to the sample; pictures need less.
std::uint32_t movieTimescale(const std::vector<IndexedTrack>& tracks) {
  const auto sound = std::ranges::find(tracks, boxType("soun"), &IndexedTrack::handler);
  return sound != tracks.end() ? sound->timescale : tracks.front().timescale;
}

}  // namespace

MovieIndex::MovieIndex(ByteSpan movie, const FragmentIndex& fragments, std::optional<MediaTime> end)
    : movie_(movie), fragments_(fragments), end_(end), timescale_(movieTimescale(fragments.tracks())) {}

Bytes MovieIndex::build(std::int64_t shift) const {
  const auto boxes = boxesOf(boxesOf(movie_).front().payload);
  BoxWriter writer;
  auto track = fragments_.tracks().begin();
  writer.box(boxType("moov"), [&](BoxWriter& movie) {
    for (const BoxView& box : boxes) {
      if (box.type == boxType("mvhd")) {
        writeMovieHeader(movie, box.payload);
      } else if (box.type == boxType("trak")) {
        // Players stumble over a track without samples; it says nothing that its absence does not.
        if (track->samples.sampleCount() > 0) writeTrack(movie, box.payload, *track, shift);
        ++track;
      } else if (box.type != boxType("mvex")) {
        movie.raw(box.bytes);
      }
    }
  });
  return writer.take();
}

MediaTime MovieIndex::duration() const {
  std::uint64_t longest = 0;
  for (const IndexedTrack& track : fragments_.tracks()) {
    const Placement placement = place(track);
    if (placement.length > 0) longest = std::max(longest, movieTicks(track, placement.emptyEdit + placement.length));
  }
  return {static_cast<std::int64_t>(longest), static_cast<std::int32_t>(timescale_)};
}

MovieIndex::Placement MovieIndex::place(const IndexedTrack& track) const {
  // The finished track counts from its first sample; the fragments counted from a common zero.
  const std::int64_t shift = track.presentationShift + track.firstDecodeTime;
  Placement placement{std::max<std::int64_t>(shift, 0), std::max<std::int64_t>(-shift, 0), 0};
  placement.length =
      std::max<std::int64_t>(static_cast<std::int64_t>(track.samples.duration()) - placement.mediaStart, 0);
  if (end_) {
    const std::int64_t end = end_->rescaled(static_cast<std::int32_t>(track.timescale)).value();
    placement.length = std::clamp<std::int64_t>(end - placement.emptyEdit, 0, placement.length);
  }
  return placement;
}

std::uint64_t MovieIndex::movieTicks(const IndexedTrack& track, std::int64_t ticks) const {
  return (static_cast<unsigned __int128>(ticks) * timescale_ + track.timescale / 2) / track.timescale;
}

void MovieIndex::writeMovieHeader(BoxWriter& writer, ByteSpan original) const {
  writeHeader(writer, boxType("mvhd"), original, std::array{timescale_},
              static_cast<std::uint64_t>(duration().value()));
}

void MovieIndex::writeTrack(BoxWriter& writer, ByteSpan original, const IndexedTrack& track, std::int64_t shift) const {
  const Placement placement = place(track);
  const std::uint64_t duration = movieTicks(track, placement.emptyEdit + placement.length);
  writer.box(boxType("trak"), [&](BoxWriter& box) {
    for (const BoxView& part : boxesOf(original)) {
      if (part.type == boxType("tkhd")) {
        writeHeader(box, part.type, part.payload, std::array{track.id, std::uint32_t{0}}, duration);
        writeEdits(box, track);
      } else if (part.type == boxType("mdia")) {
        writeMedia(box, part.payload, track, shift);
      } else if (part.type != boxType("edts")) {
        box.raw(part.bytes);
      }
    }
  });
}

void MovieIndex::writeEdits(BoxWriter& writer, const IndexedTrack& track) const {
  constexpr std::uint32_t normalRate = 0x1'0000;
  const Placement placement = place(track);
  writer.box(boxType("edts"), [&](BoxWriter& edits) {
    edits.fullBox(boxType("elst"), 1, [&](BoxWriter& list) {
      list.u32(placement.emptyEdit > 0 ? 2 : 1);
      if (placement.emptyEdit > 0) {
        list.u64(movieTicks(track, placement.emptyEdit));
        list.u64(~std::uint64_t{0});
        list.u32(normalRate);
      }
      list.u64(movieTicks(track, placement.length));
      list.u64(static_cast<std::uint64_t>(placement.mediaStart));
      list.u32(normalRate);
    });
  });
}

void MovieIndex::writeMedia(BoxWriter& writer, ByteSpan original, const IndexedTrack& track, std::int64_t shift) const {
  const auto writeInformation = [&](BoxWriter& box, const BoxView& information) {
    box.box(boxType("minf"), [&](BoxWriter& target) {
      for (const BoxView& part : boxesOf(information.payload)) {
        if (part.type != boxType("stbl")) {
          target.raw(part.bytes);
          continue;
        }
        target.box(boxType("stbl"), [&](BoxWriter& table) {
          table.raw(findBox(part.payload, {boxType("stsd")})->bytes);
          track.samples.write(table, shift);
        });
      }
    });
  };
  writer.box(boxType("mdia"), [&](BoxWriter& box) {
    for (const BoxView& part : boxesOf(original)) {
      if (part.type == boxType("mdhd")) {
        writeHeader(box, part.type, part.payload, std::array{track.timescale}, track.samples.duration());
      } else if (part.type == boxType("minf")) {
        writeInformation(box, part);
      } else {
        box.raw(part.bytes);
      }
    }
  });
}

}  // namespace quillbeam
