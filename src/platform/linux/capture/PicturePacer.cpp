#include "platform/linux/capture/PicturePacer.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

constexpr MediaTime repeatInterval{1, 1};

// Waking up takes the scheduler this long now and then; the picture still shows what the tick's would have.
constexpr MediaTime wakeUpTolerance{5, 1000};

}  // namespace

PicturePacer::Decision PicturePacer::decide(MediaTime now, ScreenState screen, Repeats repeats, Room room) {
  const auto tick = grid_.tickAt(now);
  const auto skipped = lastTick_ ? std::max<std::int64_t>(tick - *lastTick_ - 1, 0) : 0;
  lastTick_ = tick;

  Decision decision{.stamp = stampFor(now, tick)};
  const bool changed = screen == ScreenState::changed;
  if (changed) decision.missed = skipped;
  if (lastStamp_.isValid() && decision.stamp <= lastStamp_) return decision;
  if (room == Room::none) {
    if (changed) ++decision.missed;
    return decision;
  }
  if (changed) {
    decision.action = Action::grab;
  } else if (owesRepeat_ || isRepeatDue(decision.stamp, repeats)) {
    decision.action = Action::repeat;
  }
  return decision;
}

void PicturePacer::pictureTaken(MediaTime stamp) {
  lastStamp_ = stamp;
  owesRepeat_ = false;
}

bool PicturePacer::isRepeatDue(MediaTime stamp, Repeats repeats) const {
  if (!lastStamp_.isValid()) return false;
  switch (repeats) {
    case Repeats::everyTick:
      return true;
    case Repeats::everySecond:
      return stamp - lastStamp_ >= repeatInterval;
  }
  std::unreachable();
}

MediaTime PicturePacer::stampFor(MediaTime now, std::int64_t tick) const {
  const auto onGrid = grid_.at(tick);
  return now - onGrid <= wakeUpTolerance ? onGrid : now;
}

}  // namespace quillbeam
