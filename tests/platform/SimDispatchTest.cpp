#include "platform/sim/SimDispatch.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

std::string scheduleOf(std::uint64_t seed) {
  SimDispatch dispatch({.seed = seed});
  std::string order;
  const auto a = dispatch.makeSerialQueue("a");
  const auto b = dispatch.makeSerialQueue("b");
  for (const char* step : {"1", "2", "3"}) {
    a->async([&order, step] { order += std::string("a") + step; });
    b->async([&order, step] { order += std::string("b") + step; });
    dispatch.main().async([&order, step] { order += std::string("m") + step; });
  }
  dispatch.runUntilIdle();
  return order;
}

TEST(SimDispatch, interleavesQueuesBySeedAndReplaysASeed) {
  std::set<std::string> schedules;
  for (std::uint64_t seed = 0; seed < 50; ++seed) {
    EXPECT_EQ(scheduleOf(seed), scheduleOf(seed));
    schedules.insert(scheduleOf(seed));
  }
  EXPECT_GT(schedules.size(), 30u);
}

TEST(SimDispatch, aKilledProcessRunsNothingMoreButItsDestructorsMayStillSync) {
  SimDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("q");
  int ran = 0;
  queue->async([&] { ++ran; });
  const auto timer = dispatch.main().after(1s, [&] { ++ran; });
  dispatch.kill();
  dispatch.main().async([&] { ++ran; });
  dispatch.advance(1min);
  EXPECT_EQ(ran, 0);
  queue->sync([&] { ran = 10; });
  EXPECT_EQ(ran, 10);
  EXPECT_TRUE(dispatch.isIdle());
  dispatch.revive();
  queue->async([&] { ++ran; });
  dispatch.runUntilIdle();
  EXPECT_EQ(ran, 11);
}

TEST(SimDispatchDeathTest, findsSyncsThatWouldWaitForThemselves) {
  SimDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("q");
  EXPECT_DEATH(dispatch.main().sync([] {}), "check failed");
  EXPECT_DEATH(queue->sync([&] { dispatch.main().sync([] {}); }), "check failed");
}

}  // namespace
}  // namespace quillbeam
