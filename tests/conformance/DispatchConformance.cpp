#include <algorithm>
#include <atomic>
#include <vector>

#include "support/Worlds.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

class DispatchConformance : public ConformanceTest {
 protected:
  std::unique_ptr<DispatchQueue> makeQueue(std::string_view label = "test") {
    return dispatch().makeSerialQueue(label);
  }
};
QB_ON_BOTH_WORLDS(DispatchConformance);

TEST_P(DispatchConformance, runsClosuresInOrderAndOneAtATime) {
  std::vector<int> seen;
  std::atomic<int> inside = 0;
  std::atomic<bool> overlapped = false;
  {
    const auto queue = makeQueue();
    for (int number = 0; number < 500; ++number) {
      queue->async([&, number] {
        if (inside.fetch_add(1) != 0) overlapped = true;
        seen.push_back(number);
        inside.fetch_sub(1);
      });
    }
  }
  ASSERT_EQ(seen.size(), 500u) << "destroying a queue first runs what was enqueued";
  EXPECT_TRUE(std::ranges::is_sorted(seen));
  EXPECT_FALSE(overlapped);
}

TEST_P(DispatchConformance, destroyingAQueueAlsoRunsWhatItsClosuresEnqueue) {
  int generations = 0;
  std::function<void(DispatchQueue&)> next = [&](DispatchQueue& queue) {
    if (++generations < 5) queue.async([&] { next(queue); });
  };
  {
    const auto owner = makeQueue();
    DispatchQueue& queue = *owner;
    queue.sync([&] { next(queue); });
  }
  EXPECT_EQ(generations, 5);
}

TEST_P(DispatchConformance, knowsWhichQueueIsCurrentAlsoInsideNestedSyncs) {
  const auto outer = makeQueue("outer");
  const auto inner = makeQueue("inner");
  EXPECT_TRUE(dispatch().main().isCurrent()) << "the test's own code is the main thread";
  std::vector<bool> seen;
  const auto look = [&] {
    seen.insert(seen.end(), {outer->isCurrent(), inner->isCurrent(), dispatch().main().isCurrent()});
  };
  outer->sync([&] {
    look();
    inner->sync(look);
    look();
  });
  EXPECT_EQ(seen, (std::vector<bool>{true, false, false, false, true, false, true, false, false}));
  EXPECT_FALSE(outer->isCurrent());
  EXPECT_TRUE(dispatch().main().isCurrent());
}

TEST_P(DispatchConformance, destroysWhatAClosureOwnedOnItsQueue) {
  const auto queue = makeQueue();
  struct Guard {
    DispatchQueue& queue;
    std::atomic<bool>& onQueue;
    ~Guard() { onQueue = queue.isCurrent(); }
  };
  std::atomic<bool> onQueue = false;
  queue->async([guard = std::make_unique<Guard>(*queue, onQueue)] {});
  queue->sync([] {});
  EXPECT_TRUE(onQueue);
}

TEST_P(DispatchConformance, runsADelayedClosureNotBeforeItsTimeAndInOrderOfTime) {
  const auto queue = makeQueue();
  const MediaTime start = dispatch().hostTime();
  std::vector<int> order;
  std::vector<MediaTime> at;
  std::atomic<int> count = 0;
  const auto note = [&](int number) {
    return [&, number] {
      order.push_back(number);
      at.push_back(dispatch().hostTime() - start);
      ++count;
    };
  };
  const auto late = queue->after(60ms, note(60));
  const auto early = queue->after(20ms, note(20));
  const auto soon = queue->after(-1s, note(0));
  ASSERT_TRUE(world().waitUntil([&] { return count == 3; }));
  queue->sync([] {});
  EXPECT_EQ(order, (std::vector<int>{0, 20, 60}));
  EXPECT_GE(at[1], MediaTime::from(20ms));
  EXPECT_GE(at[2], MediaTime::from(60ms));
}

TEST_P(DispatchConformance, aTimerDestroyedOnItsQueueBeforeItStartedNeverRuns) {
  const auto queue = makeQueue();
  std::atomic<bool> ran = false;
  bool destroyedItsClosure = false;
  queue->sync([&] {
    auto owned = std::make_shared<int>(0);
    TimerHandle timer = queue->after(1ms, [&ran, owned] { ran = true; });
    // Due by now, and waiting behind this very closure: the sharpest case there is.
    const MediaTime due = dispatch().hostTime() + MediaTime::from(5ms);
    while (!isSim() && dispatch().hostTime() < due) {
    }
    timer.reset();
    destroyedItsClosure = owned.use_count() == 1;
  });
  world().letPass(20ms);
  queue->sync([] {});
  EXPECT_FALSE(ran);
  EXPECT_TRUE(destroyedItsClosure);
}

TEST_P(DispatchConformance, aTimerMayBeDestroyedInsideItsOwnClosureAndAfterIt) {
  TimerHandle timer;
  int ran = 0;
  timer = dispatch().main().after(1ms, [&] {
    timer.reset();
    ++ran;
  });
  ASSERT_TRUE(world().waitUntil([&] { return ran == 1; }));
  TimerHandle second = dispatch().main().after(1ms, [&] { ++ran; });
  ASSERT_TRUE(world().waitUntil([&] { return ran == 2; }));
  second.reset();
  world().letPass(5ms);
  EXPECT_EQ(ran, 2);
}

TEST_P(DispatchConformance, timersOfADestroyedQueueDoNotRun) {
  std::atomic<bool> ran = false;
  TimerHandle timer;
  {
    const auto queue = makeQueue();
    timer = queue->after(5ms, [&] { ran = true; });
  }
  world().letPass(20ms);
  EXPECT_FALSE(ran);
}

TEST_P(DispatchConformance, manyThreadsMayEnqueueAndCancelAtOnce) {
  const auto queue = makeQueue();
  std::atomic<int> handled = 0;
  int confined = 0;  // a race here is TSan's to find
  for (int sender = 0; sender < 8; ++sender) {
    dispatch().global().async([&] {
      for (int i = 0; i < 200; ++i) {
        TimerHandle cancelled = queue->after(1ms, [&] { ++confined; });
        queue->async([&] { ++confined; });
      }
      ++handled;
    });
  }
  ASSERT_TRUE(world().waitUntil([&] { return handled == 8; }));
  queue->sync([&] { EXPECT_GE(confined, 1600); });
}

}  // namespace
}  // namespace quillbeam
