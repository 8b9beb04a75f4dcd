#pragma once

#include <cstdint>
#include <optional>

#include "platform/linux/capture/FrameGrid.h"
#include "platform/linux/x11/ScreenSource.h"

namespace quillbeam {

/// Decides, tick by tick, whether to take a picture, to repeat the one before or to do nothing, and when each counts as
/// taken. A screen that changed since the last tick is grabbed on the next one, however long ago the one before was: a
/// gate on elapsed time instead would turn a screen of 30 Hz into 15 pictures a second.
class PicturePacer {
 public:
  enum class Action { nothing, grab, repeat };
  enum class Repeats { everyTick, everySecond };
  enum class Room { free, none };  ///< whether the output can take another picture

  struct Decision {
    Action action = Action::nothing;
    MediaTime stamp;          ///< on the grid, unless the thread woke up late
    std::int64_t missed = 0;  ///< pictures that the screen would have been worth and nobody took
  };

  explicit PicturePacer(MediaTime interval) : grid_(interval) {}

  MediaTime interval() const { return grid_.interval(); }
  MediaTime nextTickAfter(MediaTime now) const { return grid_.at(grid_.tickAt(now) + 1); }

  /// Once per tick, in order.
  Decision decide(MediaTime now, ScreenState screen, Repeats repeats, Room room);
  /// Whether an unchanged screen is due to be shown again at `stamp`.
  bool isRepeatDue(MediaTime stamp, Repeats repeats) const;

  /// A picture with this time went on its way.
  void pictureTaken(MediaTime stamp);
  /// The last picture did not arrive: the next tick shows it again.
  void pictureRefused() { owesRepeat_ = true; }
  /// Invalid before the first picture.
  MediaTime lastStamp() const { return lastStamp_; }

 private:
  MediaTime stampFor(MediaTime now, std::int64_t tick) const;

  FrameGrid grid_;
  std::optional<std::int64_t> lastTick_;
  MediaTime lastStamp_;
  bool owesRepeat_ = false;
};

}  // namespace quillbeam
