#include "platform/linux/ffmpeg/WritingPipeline.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

/// How long the other tracks wait for one that does not start before it is started for it. Pictures that come once a
/// second take some seconds to get through the encoder.
constexpr MediaTime soundStartLimit{2, 1};
constexpr MediaTime pictureStartLimit{10, 1};

std::vector<std::int32_t> timescales(const std::vector<WritingPipeline::Track>& tracks) {
  std::vector<std::int32_t> timescales;
  for (const auto& track : tracks) timescales.push_back(track.format.timescale);
  return timescales;
}

}  // namespace

WritingPipeline::WritingPipeline(std::vector<Track> tracks, PacketMailbox* pictures, const SessionTimes& session,
                                 Outputs outputs)
    : tracks_(std::move(tracks)),
      pictures_(pictures),
      session_(session),
      outputs_(std::move(outputs)),
      starts_(timescales(tracks_)),
      runningTracks_(tracks_.size()) {}

void WritingPipeline::push(std::size_t track, const EncodedPacket& packet) {
  starts_.pushed(track, packet);
  for (const auto& output : outputs_) output->push(track, packet);
}

PacketSink WritingPipeline::sinkOf(std::size_t track) {
  return [this, track](const EncodedPacket& packet) { push(track, packet); };
}

void WritingPipeline::endTrack(std::size_t track, std::optional<MediaTime> end) {
  starts_.ended(track);
  for (const auto& output : outputs_) output->endTrack(track, end);
  --runningTracks_;
}

Result<WritingPipeline::Progress> WritingPipeline::step() {
  TRY(const bool tookPictures, takePictures());
  TRY(const bool encodedSound, encodeSound());
  TRY_VOID(startMissingTracks());
  TRY(const bool wrote, write());
  if (tookPictures || encodedSound || wrote) return Progress::some;
  return runningTracks_ == 0 ? Progress::ended : Progress::none;
}

Result<bool> WritingPipeline::takePictures() {
  if (pictures_ == nullptr || picturesEnded_) return false;
  const auto track = static_cast<std::size_t>(
      std::ranges::find_if(tracks_, [](const Track& each) { return each.sound == nullptr; }) - tracks_.begin());
  bool any = false;
  while (auto packet = pictures_->pop()) {
    push(track, *packet);
    any = true;
  }
  const auto ending = pictures_->ending();
  if (!ending) return any;
  if (!*ending) return ending->error();
  endTrack(track, **ending);
  picturesEnded_ = true;
  return true;
}

Result<bool> WritingPipeline::encodeSound() {
  bool any = false;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (!tracks_[i].sound) continue;
    TRY(const auto progress, tracks_[i].sound->step(sinkOf(i)));
    any = any || progress != AudioTrackFeed::Progress::none;
    if (progress != AudioTrackFeed::Progress::ended) continue;
    if (const auto end = session_.relativeEnd()) {
      for (const auto& output : outputs_) output->cutTrack(i, *end);
    }
    endTrack(i, std::nullopt);
  }
  return any;
}

Result<void> WritingPipeline::startMissingTracks() {
  for (const std::size_t track : starts_.missing(soundStartLimit)) {
    if (tracks_[track].sound) TRY_VOID(tracks_[track].sound->encodeLeadingSilence(sinkOf(track)));
  }
  for (const std::size_t track : starts_.missing(pictureStartLimit)) {
    if (!tracks_[track].sound) pictures_->requestStart();
  }
  return success;
}

Result<bool> WritingPipeline::write() {
  bool any = false;
  for (const auto& output : outputs_) {
    TRY(const bool wrote, output->write());
    any = any || wrote;
  }
  return any;
}

Result<void> WritingPipeline::finish() {
  for (const auto& output : outputs_) TRY_VOID(output->finish(session_.relativeEnd()));
  return success;
}

void WritingPipeline::salvage() {
  for (const auto& output : outputs_) output->salvage(session_.relativeEnd());
}

void WritingPipeline::discard() {
  for (const auto& output : outputs_) output->discard();
}

}  // namespace quillbeam
