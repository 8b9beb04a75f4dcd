#include "platform/linux/posix/LinuxDispatch.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <semaphore>
#include <thread>

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

bool isReadable(int descriptor) {
  pollfd poll{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&poll, 1, 0) == 1;
}

TEST(LinuxDispatch, runsMainUntilStopped) {
  LinuxDispatch dispatch;
  int ran = 0;
  dispatch.global().async([&] {
    dispatch.main().async([&] { ++ran; });
    dispatch.main().async([&] {
      ++ran;
      dispatch.stopMain();
    });
  });
  dispatch.runMain();
  EXPECT_EQ(ran, 2);
}

TEST(LinuxDispatch, canBeDrivenByAnEventLoopThatWatchesTheDescriptor) {
  LinuxDispatch dispatch;
  EXPECT_FALSE(isReadable(dispatch.mainDescriptor()));
  int ran = 0;
  dispatch.main().async([&] {
    ++ran;
    dispatch.main().async([&] { ++ran; });
    dispatch.drainMain();  // a nested loop: must neither run closures inside this one nor lose them
    EXPECT_FALSE(isReadable(dispatch.mainDescriptor())) << "or the nested loop would spin";
    EXPECT_EQ(ran, 1);
  });
  EXPECT_TRUE(isReadable(dispatch.mainDescriptor()));
  dispatch.drainMain();
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(isReadable(dispatch.mainDescriptor()));
  dispatch.drainMain();
  EXPECT_EQ(ran, 2);
  EXPECT_FALSE(isReadable(dispatch.mainDescriptor()));
}

TEST(LinuxDispatch, blockedQueuesDoNotStarveOthersNorCostAThreadEachWhenIdle) {
  LinuxDispatch dispatch;
  std::counting_semaphore<> release(0);
  std::binary_semaphore done(0);
  std::vector<std::unique_ptr<DispatchQueue>> queues;
  for (int i = 0; i < 40; ++i) queues.push_back(dispatch.makeSerialQueue("idle"));
  for (const auto& queue : queues) queue->sync([] {});
  EXPECT_LE(dispatch.poolThreadCount(), std::max(4u, std::thread::hardware_concurrency()));

  constexpr int blocked = 20;
  for (int i = 0; i < blocked; ++i) queues[i]->async([&] { release.acquire(); });
  queues[blocked]->async([&] { done.release(); });
  EXPECT_TRUE(done.try_acquire_for(30s)) << "a queue waited for blocked neighbours";
  release.release(blocked);
}

/// Keeps its queue ready for ever, until it is told to stop.
struct BusyLoop {
  void run() {
    if (!stop) queue->async([this] { run(); });
  }
  std::atomic<bool> stop = false;
  std::unique_ptr<DispatchQueue> queue;
};

TEST(LinuxDispatch, aBusyQueueTakesTurnsWithOthers) {
  LinuxDispatch dispatch;
  std::binary_semaphore done(0);
  std::array<BusyLoop, 8> busy;
  for (BusyLoop& loop : busy) {
    loop.queue = dispatch.makeSerialQueue("busy");
    loop.run();
  }
  const auto patient = dispatch.makeSerialQueue("patient");
  patient->async([&] { done.release(); });
  EXPECT_TRUE(done.try_acquire_for(30s));
  for (BusyLoop& loop : busy) loop.stop = true;
}

}  // namespace
}  // namespace quillbeam
