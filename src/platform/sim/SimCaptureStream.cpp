#include "platform/sim/SimCaptureStream.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/sim/SimPicture.h"

namespace quillbeam {

struct SimCaptureStream::Counters {
  std::atomic<bool> closed = false;
  std::atomic<bool> taken = false;
  std::atomic<std::int64_t> delivered = 0;
  std::atomic<std::int64_t> dropped = 0;
};

struct SimCaptureStream::Lane {
  StreamOutput& output;
  DispatchQueue& queue;
  std::atomic<int> waiting = 0;
};

SimCaptureStream::SimCaptureStream(Dispatch& dispatch, const SimCaptureScript& script,
                                   StreamConfiguration configuration, StreamDelegate& delegate, Gone gone)
    : dispatch_(dispatch),
      script_(script),
      configuration_(configuration),
      delegate_(delegate),
      gone_(std::move(gone)),
      counters_(std::make_shared<Counters>()) {
  configuration_.minimumFrameInterval = std::max(configuration_.minimumFrameInterval, shortestFrameInterval);
}

SimCaptureStream::~SimCaptureStream() {
  counters_->closed = true;
  timer_.reset();
  for (const auto& lane : lanes_) {
    if (lane && !lane->queue.isCurrent()) lane->queue.sync([] {});
  }
  gone_(this);
}

bool SimCaptureStream::captures(OutputType type) const {
  return type == OutputType::screen || (type == OutputType::audio && configuration_.capturesAudio) ||
         (type == OutputType::microphone && configuration_.captureMicrophone);
}

Result<void> SimCaptureStream::addStreamOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) {
  if (const auto error = script_.addOutputErrors.find(type); error != script_.addOutputErrors.end()) {
    return error->second;
  }
  if (!captures(type)) return ScreenCaptureError::notConfigured;
  auto& lane = lanes_[static_cast<std::size_t>(type)];
  if (lane) return ScreenCaptureError::duplicateOutput;
  lane = std::shared_ptr<Lane>(new Lane{output, queue});
  return success;
}

Task<void> SimCaptureStream::startCapture() {
  if (running_) co_return CommonError::invalidArgument;
  const auto alive = aliveFlag();
  if (!script_.startError) begin();
  CO_TRY_VOID(co_await delay(dispatch_.main(), script_.startTakes));
  if (!*alive) co_return CommonError::cancelled;
  if (script_.startError) co_return *script_.startError;
  startHasReturned_ = true;
  co_return success;
}

Task<void> SimCaptureStream::stopCapture() {
  if (!running_) co_return ScreenCaptureError::notRunning;
  const auto alive = aliveFlag();
  end(dispatch_.hostTime());
  CO_TRY_VOID(co_await delay(dispatch_.main(), script_.stopTakes));
  if (!*alive) co_return CommonError::cancelled;
  const auto stopError = script_.stopError;
  CO_TRY_VOID(co_await allDelivered());
  if (stopError) co_return *stopError;
  co_return success;
}

Task<void> SimCaptureStream::allDelivered() {
  const auto lanes = lanes_;
  for (const auto& lane : lanes) {
    if (lane) CO_TRY_VOID(co_await drained(lane->queue));
  }
  co_return success;
}

StreamStatistics SimCaptureStream::statistics() const { return {counters_->delivered, counters_->dropped}; }

void SimCaptureStream::deliver(OutputType type, SampleBuffer sample) {
  const auto& to = lane(type);
  if (!to) return;
  if (type == OutputType::screen) ++counters_->delivered;
  ++to->waiting;
  to->queue.async([to, counters = counters_, type, sample = std::move(sample)] {
    if (!counters->closed) {
      const auto answer = to->output.didOutputSampleBuffer(sample, type);
      if (type == OutputType::screen && answer == SampleDisposition::taken) counters->taken = true;
    }
    --to->waiting;
  });
}

void SimCaptureStream::deliverPicture(MediaTime stamp, std::optional<FrameStatus> status) {
  deliver(OutputType::screen, picture(stamp, status));
}

void SimCaptureStream::deliverSound(OutputType type, MediaTime stamp, int frames) {
  AudioBlock block;
  block.samples.resize(static_cast<std::size_t>(frames) * static_cast<std::size_t>(block.channels));
  deliver(type, SampleBuffer::audio(std::make_shared<const AudioBlock>(std::move(block)), stamp));
}

SampleBuffer SimCaptureStream::picture(MediaTime stamp, std::optional<FrameStatus> status) {
  return SampleBuffer::video(std::make_shared<SimPicture>(configuration_.width, configuration_.height, luma_),
                             {configuration_.minimumFrameInterval, stamp, MediaTime::invalid()}, status);
}

void SimCaptureStream::begin() {
  running_ = true;
  startHasReturned_ = false;
  counters_->taken = false;
  changed_ = true;
  lastStamp_ = MediaTime::invalid();
  const auto& interval = configuration_.minimumFrameInterval;
  const auto now = dispatch_.hostTime().rescaled(interval.timescale());
  nextTick_ = now.value() / interval.value() + 1;
  sounds_.clear();
  const auto from = tickTime(nextTick_);
  if (lane(OutputType::audio)) sounds_.push_back({OutputType::audio, SimTone(script_.systemTone, from)});
  if (lane(OutputType::microphone)) sounds_.push_back({OutputType::microphone, SimTone(script_.microphoneTone, from)});
  scheduleTick();
}

MediaTime SimCaptureStream::tickTime(std::int64_t tick) const {
  const auto& interval = configuration_.minimumFrameInterval;
  return {tick * interval.value(), interval.timescale()};
}

void SimCaptureStream::scheduleTick() {
  if (script_.samples == SimSamples::byHand) return;
  const auto wait = (tickTime(nextTick_) - dispatch_.hostTime()).toNanoseconds();
  timer_ =
      dispatch_.main().after(std::max(wait, Duration(0)), weakly(this, [](SimCaptureStream& self) { self.tick(); }));
}

void SimCaptureStream::tick() {
  if (!running_) return;
  const auto stamp = tickTime(nextTick_++);
  deliverUntil(stamp);
  if (isPictureDue(stamp)) {
    const bool isNew = script_.screen == SimScreen::moving || std::exchange(changed_, false);
    if (isNew) luma_ = static_cast<std::uint8_t>(luma_ == 235 ? 16 : luma_ + 1);
    const auto& screen = lane(OutputType::screen);
    if (screen && screen->waiting >= configuration_.queueDepth) {
      ++counters_->dropped;
    } else {
      heldPicture_ = picture(stamp, FrameStatus::complete);
      lastStamp_ = stamp;
    }
  }
  scheduleTick();
}

bool SimCaptureStream::isPictureDue(MediaTime stamp) const {
  if (script_.screen == SimScreen::moving || changed_ || !lastStamp_.isValid()) return true;
  const bool isSettled = startHasReturned_ && counters_->taken;
  return !isSettled || stamp - lastStamp_ >= MediaTime(1, 1);
}

void SimCaptureStream::deliverUntil(MediaTime time) {
  // Sound comes as it ends, the picture as soon as no older block can follow it.
  while (true) {
    Sound* next = nullptr;
    for (auto& sound : sounds_) {
      const bool isOlder = next == nullptr || sound.tone.nextStart() < next->tone.nextStart();
      if (sound.tone.nextEnd() <= time && isOlder) next = &sound;
    }
    const bool pictureIsNext =
        heldPicture_ && (next == nullptr || heldPicture_->presentationTime() <= next->tone.nextStart());
    if (pictureIsNext) {
      deliver(OutputType::screen, *std::exchange(heldPicture_, std::nullopt));
    } else if (next != nullptr) {
      deliver(next->type, next->tone.nextBlock());
    } else {
      return;
    }
  }
}

void SimCaptureStream::end(MediaTime time) {
  running_ = false;
  timer_.reset();
  if (script_.samples == SimSamples::byHand) return;
  deliverUntil(time);
  if (!lastStamp_.isValid() || time > lastStamp_) deliver(OutputType::screen, picture(time, FrameStatus::complete));
}

void SimCaptureStream::stopByItself(Error error) {
  end(dispatch_.hostTime());
  auto remaining = std::make_shared<std::atomic<int>>(1);
  auto oneIsDone = [this, alive = aliveFlag(), main = &dispatch_.main(), remaining, error] {
    if (--*remaining > 0) return;
    main->async([this, alive, error] {
      if (*alive) delegate_.streamDidStopWithError(error);
    });
  };
  for (const auto& lane : lanes_) {
    if (!lane) continue;
    ++*remaining;
    lane->queue.async(oneIsDone);
  }
  oneIsDone();
}

}  // namespace quillbeam
