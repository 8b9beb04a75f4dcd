#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using State = MacUploadSessionState;

TEST(UploadResume, goesOnAfterAnOrderlyEnd) {
  UploadWorld machine;
  const auto session = machine.start();
  bool isStalled = true;
  machine.world.network.fate = [&](const SimExchange& exchange) {
    return SimFate{.kind = isStalled && exchange.isTransfer ? SimFate::Kind::stalled : SimFate::Kind::answered};
  };
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  EXPECT_TRUE(machine.send(session.id, 2, "b"));
  const auto outcome = machine.finish(session.id, 2);
  machine.advance(5s);
  machine.endOrderly();
  ASSERT_TRUE(outcome->has_value());
  EXPECT_TRUE((**outcome).error().is(MacBackgroundUploadError::sessionInterrupted));
  isStalled = false;
  machine.launch();
  EXPECT_TRUE(machine.process->await(machine.manager().resumeIncompleteSessions()));
  EXPECT_EQ(machine.logged("already active, skipping resume"), 1);
  EXPECT_EQ(machine.logged("Resuming session: "), 1);
  machine.advance(1s);
  EXPECT_EQ(machine.record(session.id)->state, State::completed);
  EXPECT_EQ(machine.record(session.id)->errorCount, 2);
  EXPECT_EQ(machine.object("file-1"), "aaaab");
  EXPECT_EQ(machine.service.calls("finalize"), 1);
  EXPECT_THAT(machine.partFiles(), IsEmpty());
}

TEST(UploadResume, doesNotGoOnWithAPartThatWasGivenUp) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  machine.advance(1s);
  machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    return exchange.isTransfer ? std::optional(HttpResponse{.status = 500}) : std::nullopt;
  };
  EXPECT_TRUE(machine.send(session.id, 2, "b"));
  machine.finish(session.id, 2);
  machine.advance(1min);
  machine.endOrderly();
  machine.process = std::make_unique<UploadProcess>(machine.world);
  EXPECT_EQ(machine.record(session.id)->state, State::active);
  EXPECT_TRUE(machine.process->await(machine.manager().resumeIncompleteSessions()));
  EXPECT_EQ(machine.record(session.id)->state, State::failed);
}

}  // namespace
}  // namespace quillbeam
