#include "platform/linux/ffmpeg/FragmentIndex.h"

#include <algorithm>

namespace quillbeam {

namespace {

/// Times beyond this are noise, not a recording; the bound also keeps the arithmetic far from overflow.
constexpr std::int64_t maxTicks = std::int64_t{1} << 44;

constexpr std::uint32_t maxTimescale = 1'000'000'000;

constexpr std::uint32_t sampleIsNonSync = 0x10000;

enum TrackFragmentFlag : std::uint32_t {
  baseDataOffsetPresent = 0x1,
  descriptionPresent = 0x2,
  defaultDurationPresent = 0x8,
  defaultSizePresent = 0x10,
  defaultFlagsPresent = 0x20,
};

enum RunFlag : std::uint32_t {
  dataOffsetPresent = 0x1,
  firstFlagsPresent = 0x4,
  durationPresent = 0x100,
  sizePresent = 0x200,
  flagsPresent = 0x400,
  compositionOffsetPresent = 0x800,
};

struct VersionAndFlags {
  std::uint8_t version;
  std::uint32_t flags;
};

VersionAndFlags readVersionAndFlags(BoxReader& reader) {
  const std::uint32_t word = reader.u32();
  return {static_cast<std::uint8_t>(word >> 24), word & 0xFF'FFFF};
}

/// The timescale of an mvhd or mdhd box: both start alike.
std::uint32_t readTimescale(ByteSpan payload) {
  BoxReader reader(payload);
  reader.skip(readVersionAndFlags(reader).version == 1 ? 16 : 8);
  return reader.u32();
}

/// Empty edits push a track back, the first real edit's start pulls it forward.
Result<std::int64_t> readPresentationShift(ByteSpan editList, std::uint32_t timescale, std::uint32_t movieTimescale) {
  BoxReader reader(editList);
  const bool wide = readVersionAndFlags(reader).version == 1;
  std::int64_t shift = 0;
  for (std::uint32_t left = reader.u32(); left > 0 && reader.remaining() > 0; --left) {
    const auto duration = static_cast<std::int64_t>(wide ? reader.u64() : reader.u32());
    const std::int64_t start = wide ? static_cast<std::int64_t>(reader.u64()) : static_cast<std::int32_t>(reader.u32());
    reader.skip(4);
    if (std::abs(start) > maxTicks || duration < 0 || duration > maxTicks) return CommonError::malformedData;
    if (start >= 0) return shift - start;
    shift += static_cast<std::int64_t>(static_cast<__int128>(duration) * timescale / movieTimescale);
    if (shift > maxTicks) return CommonError::malformedData;
  }
  return shift;
}

Result<IndexedTrack> readTrack(ByteSpan track, std::uint32_t movieTimescale) {
  const auto trackHeader = findBox(track, {boxType("tkhd")});
  const auto mediaHeader = findBox(track, {boxType("mdia"), boxType("mdhd")});
  const auto handler = findBox(track, {boxType("mdia"), boxType("hdlr")});
  const auto description = findBox(track, {boxType("mdia"), boxType("minf"), boxType("stbl"), boxType("stsd")});
  if (!trackHeader || !mediaHeader || !handler || !description) return CommonError::malformedData;
  IndexedTrack result;
  BoxReader header(trackHeader->payload);
  header.skip(readVersionAndFlags(header).version == 1 ? 16 : 8);
  result.id = header.u32();
  result.timescale = readTimescale(mediaHeader->payload);
  BoxReader handlerReader(handler->payload);
  handlerReader.skip(8);
  result.handler = BoxType{handlerReader.u32()};
  if (!header.ok() || !handlerReader.ok() || result.timescale == 0 || result.timescale > maxTimescale) {
    return CommonError::malformedData;
  }
  if (const auto edits = findBox(track, {boxType("edts"), boxType("elst")})) {
    TRY(result.presentationShift, readPresentationShift(edits->payload, result.timescale, movieTimescale));
  }
  return result;
}

void readDefaults(ByteSpan trackExtends, std::vector<IndexedTrack>& tracks) {
  BoxReader reader(trackExtends);
  reader.skip(4);
  const std::uint32_t id = reader.u32();
  reader.skip(4);
  const auto track = std::ranges::find(tracks, id, &IndexedTrack::id);
  if (track == tracks.end()) return;
  track->defaults.duration = reader.u32();
  track->defaults.size = reader.u32();
  track->defaults.flags = reader.u32();
}

}  // namespace

/// Samples of one track that lie one behind the other, parsed and checked but not yet taken over.
struct FragmentIndex::Run {
  IndexedTrack* track = nullptr;
  std::optional<std::int64_t> decodeTime;  ///< of the first sample, when the fragment says it
  std::uint64_t offset = 0;
  std::vector<IndexedSample> samples;
};

Result<FragmentIndex> FragmentIndex::create(ByteSpan movie) {
  const auto outer = parseBoxes(movie);
  if (!outer || outer->size() != 1 || outer->front().type != boxType("moov")) return CommonError::malformedData;
  const auto boxes = parseBoxes(outer->front().payload);
  if (!boxes) return CommonError::malformedData;
  const auto header = findBox(*boxes, boxType("mvhd"));
  const auto extends = findBox(*boxes, boxType("mvex"));
  const std::uint32_t movieTimescale = header ? readTimescale(header->payload) : 0;
  if (movieTimescale == 0 || !extends) return CommonError::malformedData;

  FragmentIndex index;
  for (const BoxView& box : *boxes) {
    if (box.type != boxType("trak")) continue;
    TRY(IndexedTrack track, readTrack(box.payload, movieTimescale));
    index.tracks_.push_back(std::move(track));
  }
  const auto extensions = parseBoxes(extends->payload);
  if (!extensions || index.tracks_.empty()) return CommonError::malformedData;
  for (const BoxView& box : *extensions) {
    if (box.type == boxType("trex")) readDefaults(box.payload, index.tracks_);
  }
  return index;
}

Result<void> FragmentIndex::add(ByteSpan fragment, std::uint64_t offset, FileRange media) {
  const auto outer = parseBoxes(fragment);
  if (!outer || outer->size() != 1 || outer->front().type != boxType("moof")) return CommonError::malformedData;
  const auto boxes = parseBoxes(outer->front().payload);
  if (!boxes) return CommonError::malformedData;
  std::vector<Run> runs;
  for (const BoxView& box : *boxes) {
    if (box.type == boxType("traf")) TRY_VOID(parseTrackFragment(box.payload, offset, media, runs));
  }
  if (runs.empty()) return CommonError::malformedData;
  for (const Run& run : runs) take(run);
  ++fragmentCount_;
  return success;
}

namespace {

/// Adds the samples of a trun box that is positioned behind its header fields. False when it makes no sense.
bool readSamples(BoxReader& reader, VersionAndFlags box, std::uint32_t count, std::optional<std::uint32_t> firstFlags,
                 const IndexedTrack::Defaults& defaults, std::uint64_t space, std::vector<IndexedSample>& samples) {
  const std::size_t width = 4 * ((box.flags & durationPresent ? 1 : 0) + (box.flags & sizePresent ? 1 : 0) +
                                 (box.flags & flagsPresent ? 1 : 0) + (box.flags & compositionOffsetPresent ? 1 : 0));
  // A count alone must not make us allocate: every sample has to be backed by bytes, here or in the media.
  if (width > 0 ? count > reader.remaining() / width : defaults.size == 0 || count > space / defaults.size)
    return false;
  samples.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    IndexedSample sample;
    sample.duration = box.flags & durationPresent ? reader.u32() : defaults.duration;
    sample.size = box.flags & sizePresent ? reader.u32() : defaults.size;
    std::uint32_t flags = box.flags & flagsPresent ? reader.u32() : defaults.flags;
    if (i == 0 && firstFlags) flags = *firstFlags;
    sample.isSync = (flags & sampleIsNonSync) == 0;
    if (box.flags & compositionOffsetPresent) sample.compositionOffset = static_cast<std::int32_t>(reader.u32());
    if (sample.size > space) return false;
    space -= sample.size;
    samples.push_back(sample);
  }
  return reader.ok();
}

}  // namespace

Result<void> FragmentIndex::parseTrackFragment(ByteSpan payload, std::uint64_t moofOffset, FileRange media,
                                               std::vector<Run>& runs) {
  const auto boxes = parseBoxes(payload);
  const auto header = boxes ? findBox(*boxes, boxType("tfhd")) : std::nullopt;
  if (!header) return CommonError::malformedData;
  BoxReader reader(header->payload);
  const std::uint32_t flags = readVersionAndFlags(reader).flags;
  const auto track = std::ranges::find(tracks_, reader.u32(), &IndexedTrack::id);
  if (track == tracks_.end()) return CommonError::malformedData;
  IndexedTrack::Defaults defaults = track->defaults;
  const std::uint64_t base = flags & baseDataOffsetPresent ? reader.u64() : moofOffset;
  if (flags & descriptionPresent) reader.skip(4);
  if (flags & defaultDurationPresent) defaults.duration = reader.u32();
  if (flags & defaultSizePresent) defaults.size = reader.u32();
  if (flags & defaultFlagsPresent) defaults.flags = reader.u32();
  if (!reader.ok() || base > media.end) return CommonError::malformedData;

  std::optional<std::int64_t> decodeTime;
  if (const auto timeBox = findBox(*boxes, boxType("tfdt"))) {
    BoxReader time(timeBox->payload);
    decodeTime = static_cast<std::int64_t>(readVersionAndFlags(time).version == 1 ? time.u64() : time.u32());
    if (!time.ok() || *decodeTime < 0 || *decodeTime > maxTicks) return CommonError::malformedData;
  }
  std::uint64_t next = media.begin;
  for (const BoxView& box : *boxes) {
    if (box.type != boxType("trun")) continue;
    BoxReader trun(box.payload);
    const VersionAndFlags runHeader = readVersionAndFlags(trun);
    const std::uint32_t count = trun.u32();
    Run run{&*track, decodeTime, next, {}};
    if (runHeader.flags & dataOffsetPresent) run.offset = base + static_cast<std::int32_t>(trun.u32());
    std::optional<std::uint32_t> firstFlags;
    if (runHeader.flags & firstFlagsPresent) firstFlags = trun.u32();
    if (run.offset < media.begin || run.offset > media.end) return CommonError::malformedData;
    if (!readSamples(trun, runHeader, count, firstFlags, defaults, media.end - run.offset, run.samples)) {
      return CommonError::malformedData;
    }
    next = run.offset;
    for (const IndexedSample& sample : run.samples) next += sample.size;
    decodeTime.reset();
    runs.push_back(std::move(run));
  }
  return success;
}

void FragmentIndex::take(const Run& run) {
  IndexedTrack& track = *run.track;
  if (run.decodeTime && track.samples.sampleCount() == 0) {
    track.firstDecodeTime = *run.decodeTime;
  } else if (run.decodeTime) {
    const auto reached = track.firstDecodeTime + static_cast<std::int64_t>(track.samples.duration());
    track.samples.extendLast(*run.decodeTime - reached);
  }
  for (const IndexedSample& sample : run.samples) track.samples.add(sample);
  track.samples.addChunk(run.offset, static_cast<std::uint32_t>(run.samples.size()));
}

}  // namespace quillbeam
