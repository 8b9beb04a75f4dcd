#include "base/Task.h"

#include <gtest/gtest.h>

#include <thread>

#include "base/Completion.h"
#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "support/ManualExecutor.h"

namespace quillbeam {
namespace {

using test::ManualExecutor;

using Pending = std::optional<Completion<int>>;

Task<int> waitFor(Pending& pending) {
  co_return co_await completed<int>([&](Completion<int> done) { pending = done; });
}

Task<int> doubled(Pending& pending) {
  CO_TRY(const int number, co_await waitFor(pending));
  co_return 2 * number;
}

struct Local {
  explicit Local(int& living) : living(living) { ++living; }
  ~Local() { --living; }
  int& living;
};

Task<int> holdingLocals(Pending& pending, int& living) {
  const Local local(living);
  auto result = co_await doubled(pending);
  co_return result;
}

TEST(Task, passesValuesAndErrorsUpTheChain) {
  ManualExecutor queue;
  TaskScope scope(queue);
  Pending pending;
  std::vector<std::string> ends;
  const auto note = [&](Result<int> result) {
    ends.push_back(result ? std::to_string(*result) : result.error().description());
  };

  queue.run([&] { scope.start(doubled(pending), note); });
  (*pending)(21);
  EXPECT_TRUE(ends.empty());
  queue.runAll();
  queue.run([&] { scope.start(doubled(pending), note); });
  (*pending)(CommonError::unsupported);
  queue.runAll();

  EXPECT_EQ(ends, (std::vector<std::string>{"42", "The operation is not supported here"}));
  EXPECT_TRUE(scope.isIdle());
}

TEST(Task, resumesOnItsOwnQueueWhenAnotherThreadCompletes) {
  ManualExecutor queue;
  TaskScope scope(queue);
  Pending pending;
  std::thread::id resumedOn;
  queue.run([&] {
    scope.start(doubled(pending), [&](Result<int>) {
      EXPECT_TRUE(queue.isCurrent());
      resumedOn = std::this_thread::get_id();
    });
  });

  std::thread([&] { (*pending)(1); }).join();
  EXPECT_EQ(resumedOn, std::thread::id());
  queue.runAll();

  EXPECT_EQ(resumedOn, std::this_thread::get_id());
}

TEST(TaskScope, destroysSuspendedFramesAndIgnoresLateCompletions) {
  ManualExecutor queue;
  Pending pending;
  int living = 0;
  bool ended = false;
  {
    TaskScope scope(queue);
    queue.run([&] { scope.start(holdingLocals(pending, living), [&](Result<int>) { ended = true; }); });
    EXPECT_EQ(living, 1);
  }
  EXPECT_EQ(living, 0);

  (*pending)(1);
  queue.runAll();
  EXPECT_FALSE(ended);
}

TEST(TaskScope, dropsAResumptionThatWasAlreadyOnItsWay) {
  ManualExecutor queue;
  Pending pending;
  int living = 0;
  bool ended = false;
  {
    TaskScope scope(queue);
    queue.run([&] { scope.start(holdingLocals(pending, living), [&](Result<int>) { ended = true; }); });
    (*pending)(1);
  }
  queue.runAll();
  EXPECT_EQ(living, 0);
  EXPECT_FALSE(ended);
}

TEST(Completion, countsOnceWhoeverRaces) {
  for (int round = 0; round < 200; ++round) {
    ManualExecutor queue;
    TaskScope scope(queue);
    std::vector<std::thread> racers;
    int ends = 0;
    const auto race = [](std::vector<std::thread>& racers) -> Task<int> {
      co_return co_await completed<int>([&](Completion<int> done) {
        for (int racer = 0; racer < 2; ++racer) racers.emplace_back([done, racer] { done(racer); });
      });
    };
    queue.run([&] { scope.start(race(racers), [&](Result<int>) { ++ends; }); });
    for (std::thread& racer : racers) racer.join();
    queue.runAll();
    ASSERT_EQ(ends, 1);
  }
}

TEST(Weakly, doesNothingOnceTheOwnerIsGone) {
  struct Owner : WeaklyHeld {
    int calls = 0;
  };
  int calls = 0;
  auto owner = std::make_unique<Owner>();
  Closure closure = weakly(owner.get(), [&](Owner& self) { calls = ++self.calls; });
  closure();
  owner.reset();
  closure();
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace quillbeam
