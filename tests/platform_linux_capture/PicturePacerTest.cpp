#include "platform/linux/capture/PicturePacer.h"

#include <gtest/gtest.h>

namespace quillbeam {
namespace {

using Action = PicturePacer::Action;
using Repeats = PicturePacer::Repeats;
using Room = PicturePacer::Room;

constexpr MediaTime frame{1, 24};
constexpr std::int64_t uptime = 24LL * 3600 * 24 * 400;  // ticks of a machine that has been up for 400 days

MediaTime tick(std::int64_t number) { return {uptime + number, 24}; }
MediaTime ms(std::int64_t milliseconds) { return {milliseconds, 1000}; }

TEST(FrameGrid, findsTheTickOfAnyMomentExactly) {
  const FrameGrid grid(frame);
  EXPECT_EQ(grid.tickAt(tick(7)), uptime + 7);
  EXPECT_EQ(grid.tickAt((tick(7)).rescaled(1'000'000'000) - MediaTime::nanoseconds(1)), uptime + 6);
  EXPECT_EQ(FrameGrid(MediaTime(1001, 30'000)).at(3), MediaTime(3003, 30'000));
}

TEST(PicturePacer, countsTheTicksThatItSleptThroughWhileTheScreenChanged) {
  PicturePacer pacer(frame);
  pacer.pictureTaken(pacer.decide(tick(0), ScreenState::changed, Repeats::everySecond, Room::free).stamp);
  const auto late = pacer.decide(tick(4) + ms(20), ScreenState::changed, Repeats::everySecond, Room::free);
  EXPECT_EQ(late.missed, 3);
  EXPECT_EQ(late.stamp, tick(4) + ms(20)) << "so late that the grid would be a lie";
  pacer.pictureTaken(late.stamp);
  EXPECT_EQ(pacer.decide(tick(9), ScreenState::unchanged, Repeats::everySecond, Room::free).missed, 0)
      << "nothing was there to be missed";
}

}  // namespace
}  // namespace quillbeam
