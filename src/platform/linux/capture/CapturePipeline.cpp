#include "platform/linux/capture/CapturePipeline.h"

#include <utility>

namespace quillbeam {

namespace {

// Twice the delay: a sound track that is merely late never loses its place.
constexpr MediaTime mergePatience{300, 1000};

// Changing a mode or docking switches a display off for a moment.
constexpr MediaTime longestAbsence{2, 1};

using Action = PicturePacer::Action;
using Room = PicturePacer::Room;
using Urgency = SampleDelivery::Urgency;

}  // namespace

CapturePipeline::CapturePipeline(std::unique_ptr<ScreenSource> screen, std::vector<SoundTrack> sounds,
                                 MediaTime frameInterval, SampleDelivery& delivery)
    : screen_(std::move(screen)),
      sounds_(std::move(sounds)),
      pacer_(frameInterval),
      merger_(mergePatience),
      delivery_(delivery) {}

MediaTime CapturePipeline::begin(MediaTime now) {
  const auto from = pacer_.nextTickAfter(now);
  for (auto& sound : sounds_) {
    merger_.addSoundTrack(sound.type(), from);
    sound.start(from);
  }
  return from;
}

Result<void> CapturePipeline::tick(MediaTime now, PicturePacer::Repeats repeats) {
  TRY(const auto state, look(now));
  const auto room = delivery_.hasRoomForPicture() ? Room::free : Room::none;
  const auto decision = pacer_.decide(now, state, repeats, room);
  delivery_.countDropped(decision.missed);
  TRY(auto shown, picture(decision, repeats));
  if (shown) {
    lastPicture_ = std::move(shown);
    merger_.add(OutputType::screen, screenSample(decision.stamp));
    pacer_.pictureTaken(decision.stamp);
  }
  readSounds(now - mergeDelay);
  deliver(merger_.release(now), Urgency::ordinary);
  return success;
}

Result<ScreenState> CapturePipeline::look(MediaTime now) {
  TRY(const auto state, screen_->poll());
  if (state != ScreenState::absent) {
    absentSince_ = MediaTime::invalid();
  } else if (!absentSince_.isValid()) {
    absentSince_ = now;
  } else if (now - absentSince_ > longestAbsence) {
    return ScreenCaptureError::displayGone;
  }
  return state;
}

Result<std::shared_ptr<const PixelBuffer>> CapturePipeline::picture(const PicturePacer::Decision& decision,
                                                                    PicturePacer::Repeats repeats) {
  if (decision.action == Action::nothing) return nullptr;
  if (decision.action == Action::grab) {
    TRY(auto grabbed, screen_->grab());
    if (grabbed) return grabbed;
    if (!pacer_.isRepeatDue(decision.stamp, repeats)) return nullptr;
  }
  return lastPicture_;
}

void CapturePipeline::readSounds(MediaTime until) {
  for (auto& sound : sounds_) {
    for (auto& block : sound.readUntil(until)) merger_.add(sound.type(), std::move(block));
  }
}

void CapturePipeline::deliver(std::vector<MergedSample> samples, Urgency urgency) {
  for (auto& [type, sample] : samples) {
    const auto outcome = delivery_.deliver(type, std::move(sample), urgency);
    if (type == OutputType::screen && outcome == SampleDelivery::Outcome::refused) pacer_.pictureRefused();
  }
}

SampleBuffer CapturePipeline::screenSample(MediaTime stamp) const {
  return SampleBuffer::video(lastPicture_, {pacer_.interval(), stamp, MediaTime::invalid()}, FrameStatus::complete);
}

void CapturePipeline::captureLast() {
  const auto state = screen_->poll();
  if (!state || *state != ScreenState::changed) return;
  auto grabbed = screen_->grab();
  if (grabbed && *grabbed) lastPicture_ = *std::move(grabbed);
}

void CapturePipeline::flush(MediaTime end) {
  readSounds(end);
  deliver(merger_.releaseAll(), Urgency::last);
  // A tick may have been on its way when the end was set; its picture is the last one then.
  const bool isLater = !pacer_.lastStamp().isValid() || end > pacer_.lastStamp();
  if (lastPicture_ && isLater) {
    delivery_.deliver(OutputType::screen, screenSample(end), Urgency::last);
  }
}

}  // namespace quillbeam
