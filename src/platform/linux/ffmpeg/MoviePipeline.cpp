#include "platform/linux/ffmpeg/MoviePipeline.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

/// How much of a recording a power cut may take.
constexpr int fragmentsPerSync = 5;

/// How long the other tracks wait for one that does not start before it is started for it. Pictures that come once a
/// second take some seconds to get through the encoder.
constexpr MediaTime soundStartLimit{2, 1};
constexpr MediaTime pictureStartLimit{10, 1};

std::vector<std::int32_t> timescales(const std::vector<MoviePipeline::Track>& tracks) {
  std::vector<std::int32_t> timescales;
  for (const auto& track : tracks) timescales.push_back(track.format.timescale);
  return timescales;
}

}  // namespace

Result<std::unique_ptr<MoviePipeline>> MoviePipeline::create(std::vector<Track> tracks, PacketMailbox* pictures,
                                                             const SessionTimes& session, MovieFile file,
                                                             std::atomic<std::int64_t>& bytesWritten) {
  std::vector<TrackFormat> formats;
  for (const Track& track : tracks) formats.push_back(track.format);
  auto muxer = FragmentMuxer::create(formats);
  if (!muxer) return Error(AssetWriterError::cannotEncode).withUnderlying(muxer.error());
  bytesWritten = static_cast<std::int64_t>(file.size());
  return std::unique_ptr<MoviePipeline>(
      new MoviePipeline(std::move(tracks), pictures, session, std::move(file), *std::move(muxer), bytesWritten));
}

MoviePipeline::MoviePipeline(std::vector<Track> tracks, PacketMailbox* pictures, const SessionTimes& session,
                             MovieFile file, std::unique_ptr<FragmentMuxer> muxer,
                             std::atomic<std::int64_t>& bytesWritten)
    : tracks_(std::move(tracks)),
      pictures_(pictures),
      session_(session),
      file_(std::move(file)),
      muxer_(std::move(muxer)),
      interleaver_(timescales(tracks_)),
      bytesWritten_(bytesWritten),
      runningTracks_(tracks_.size()) {}

PacketSink MoviePipeline::sinkOf(std::size_t track) {
  return [this, track](EncodedPacket packet) { interleaver_.push(track, std::move(packet)); };
}

Result<MoviePipeline::Progress> MoviePipeline::step() {
  TRY(const bool tookPictures, takePictures());
  TRY(const bool encodedSound, encodeSound());
  TRY_VOID(startMissingTracks());
  TRY(const bool wrote, writeFragments());
  if (tookPictures || encodedSound || wrote) return Progress::some;
  return runningTracks_ == 0 ? Progress::ended : Progress::none;
}

Result<bool> MoviePipeline::takePictures() {
  if (pictures_ == nullptr || picturesEnded_) return false;
  const auto track = static_cast<std::size_t>(
      std::ranges::find_if(tracks_, [](const Track& each) { return each.sound == nullptr; }) - tracks_.begin());
  bool any = false;
  while (auto packet = pictures_->pop()) {
    interleaver_.push(track, *std::move(packet));
    any = true;
  }
  const auto ending = pictures_->ending();
  if (!ending) return any;
  if (!*ending) return ending->error();
  interleaver_.endTrack(track, **ending);
  picturesEnded_ = true;
  --runningTracks_;
  return true;
}

Result<bool> MoviePipeline::encodeSound() {
  bool any = false;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (!tracks_[i].sound) continue;
    TRY(const auto progress, tracks_[i].sound->step(sinkOf(i)));
    any = any || progress != AudioTrackFeed::Progress::none;
    if (progress != AudioTrackFeed::Progress::ended) continue;
    if (const auto end = session_.relativeEnd()) interleaver_.cutTrack(i, *end);
    interleaver_.endTrack(i, std::nullopt);
    --runningTracks_;
  }
  return any;
}

Result<void> MoviePipeline::startMissingTracks() {
  for (const std::size_t track : interleaver_.missingTracks(soundStartLimit)) {
    if (tracks_[track].sound) TRY_VOID(tracks_[track].sound->encodeLeadingSilence(sinkOf(track)));
  }
  for (const std::size_t track : interleaver_.missingTracks(pictureStartLimit)) {
    if (!tracks_[track].sound) pictures_->requestStart();
  }
  return success;
}

Result<bool> MoviePipeline::writeFragments() {
  bool any = false;
  while (interleaver_.isFragmentReady()) {
    for (const auto& [track, packet] : interleaver_.takeFragment()) TRY_VOID(muxer_->write(track, packet));
    TRY_VOID(writeCut());
    any = true;
  }
  return any;
}

Result<void> MoviePipeline::writeCut() {
  TRY(const MuxedFragment cut, muxer_->cut());
  if (!cut.initialization.empty()) TRY_VOID(file_.begin(cut.initialization));
  if (!cut.media.empty()) TRY_VOID(file_.append(cut.media));
  bytesWritten_ = static_cast<std::int64_t>(file_.size());
  if (++fragmentsSinceSync_ < fragmentsPerSync) return success;
  fragmentsSinceSync_ = 0;
  return file_.sync();
}

Result<void> MoviePipeline::finish() {
  if (!file_.hasBegun()) TRY_VOID(writeCut());
  TRY_VOID(file_.finish(session_.relativeEnd()));
  bytesWritten_ = static_cast<std::int64_t>(file_.size());
  return success;
}

void MoviePipeline::salvage() {
  if (file_.hasBegun()) (void)file_.finish(session_.relativeEnd());
}

}  // namespace quillbeam
