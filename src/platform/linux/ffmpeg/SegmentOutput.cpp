#include "platform/linux/ffmpeg/SegmentOutput.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

/// A screen at rest sends a picture a second, two of them wait in front of and inside the encoder, and a segment that
/// is cut before they are out would have to leave them to the next one.
constexpr MediaTime patience{5, 1};

bool isVideo(const TrackFormat& track) { return track.parameters->codec_type == AVMEDIA_TYPE_VIDEO; }

Interleaver::Timing timing(const std::vector<TrackFormat>& tracks, MediaTime interval) {
  const auto video = std::ranges::find_if(tracks, isVideo);
  Interleaver::Timing timing{interval, patience, std::nullopt};
  if (video != tracks.end()) timing.keyTrack = static_cast<std::size_t>(video - tracks.begin());
  return timing;
}

}  // namespace

Result<std::unique_ptr<SegmentOutput>> SegmentOutput::create(std::vector<TrackFormat> tracks, MediaTime interval,
                                                             SegmentSink sink,
                                                             std::atomic<std::int64_t>& bytesWritten) {
  auto muxer = FragmentMuxer::create(tracks);
  if (!muxer) return Error(AssetWriterError::cannotEncode).withUnderlying(muxer.error());
  return std::unique_ptr<SegmentOutput>(
      new SegmentOutput(std::move(tracks), interval, std::move(sink), *std::move(muxer), bytesWritten));
}

SegmentOutput::SegmentOutput(std::vector<TrackFormat> tracks, MediaTime interval, SegmentSink sink,
                             std::unique_ptr<FragmentMuxer> muxer, std::atomic<std::int64_t>& bytesWritten)
    : tracks_(std::move(tracks)),
      sink_(std::move(sink)),
      muxer_(std::move(muxer)),
      interleaver_(timescalesOf(tracks_), timing(tracks_, interval)),
      bytesWritten_(bytesWritten) {}

void SegmentOutput::endTrack(std::size_t track, std::optional<MediaTime> end) {
  // There is no index that could hide what lies behind the end.
  if (end) interleaver_.cutTrack(track, *end);
  interleaver_.endTrack(track, end);
}

Result<bool> SegmentOutput::write() {
  TRY(bool any, writeInitialization());
  while (interleaver_.isFragmentReady()) {
    const auto packets = interleaver_.takeFragment();
    if (packets.empty()) continue;
    for (const auto& [track, packet] : packets) TRY_VOID(muxer_->write(track, packet));
    // The first cut repeats the initialization.
    TRY(MuxedFragment cut, muxer_->cut());
    deliver({ByteChain(std::move(cut.media)), SegmentKind::separable, report(packets)});
    any = true;
  }
  return any;
}

Result<bool> SegmentOutput::writeInitialization() {
  if (initialized_) return false;
  const auto firsts = interleaver_.firstPackets();
  if (!firsts || firsts->empty()) return false;
  // The muxer that takes the media could put out its header now only if it were given packets for good, which may still
  // have to be cut.
  TRY(const auto muxer, FragmentMuxer::create(tracks_));
  for (const auto& [track, packet] : *firsts) TRY_VOID(muxer->write(track, packet));
  TRY(MuxedFragment cut, muxer->cut());
  initialized_ = true;
  deliver({ByteChain(std::move(cut.initialization)), SegmentKind::initialization, std::nullopt});
  return true;
}

SegmentReport SegmentOutput::report(const std::vector<Interleaver::TrackPacket>& packets) const {
  SegmentReport report;
  for (std::size_t track = 0; track < tracks_.size(); ++track) {
    MediaTime begin;
    MediaTime end;
    for (const auto& each : packets) {
      if (each.track != track) continue;
      const std::int32_t timescale = tracks_[track].timescale;
      // Priming is not presented.
      const MediaTime time = std::max(MediaTime(each.packet.presentationTime, timescale), MediaTime::zero());
      begin = begin.isValid() ? std::min(begin, time) : time;
      end = std::max(end, MediaTime(each.packet.presentationTime + each.packet.duration, timescale));
    }
    if (!begin.isValid()) continue;
    SegmentTrackReport one{MediaType::audio, begin, std::max(end - begin, MediaTime::zero()), std::nullopt};
    if (isVideo(tracks_[track])) {
      one.mediaType = MediaType::video;
      one.firstVideoSamplePresentationTime = begin;
    }
    report.trackReports.push_back(one);
  }
  return report;
}

void SegmentOutput::salvage(std::optional<MediaTime> end) {
  for (std::size_t track = 0; track < tracks_.size(); ++track) {
    if (end) interleaver_.cutTrack(track, *end);
    interleaver_.endTrack(track, std::nullopt);
  }
  (void)write();
}

void SegmentOutput::deliver(Segment segment) {
  bytesWritten_ += static_cast<std::int64_t>(segment.bytes.size());
  sink_(std::move(segment));
}

}  // namespace quillbeam
