#include "platform/linux/posix/LinuxDispatch.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <semaphore>
#include <thread>

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

bool isReadable(int descriptor) {
  pollfd poll{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&poll, 1, 0) == 1;
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

}  // namespace
}  // namespace quillbeam
