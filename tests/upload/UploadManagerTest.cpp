#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::IsEmpty;
using testing::SizeIs;
using State = MacUploadSessionState;
using StopKind = UploadWorld::StopKind;

TEST(UploadManager, abortsOneSessionAndLeavesTheOthersAlone) {
  UploadWorld machine;
  machine.world.network.fate = [](const SimExchange& exchange) {
    return SimFate{.latency = exchange.isTransfer ? 5s : 20ms};
  };
  const auto first = machine.start();
  const auto second = machine.start();
  EXPECT_TRUE(machine.send(first.id, 1, "aaaa"));
  EXPECT_TRUE(machine.send(second.id, 1, "bbbb"));
  machine.manager().stopSession(StopKind::abort, first.id);
  machine.manager().stopSession(StopKind::abort, "unknown");
  machine.advance(10s);
  EXPECT_EQ(machine.record(first.id)->state, State::aborted);
  EXPECT_EQ(machine.service.uploads.at(first.fileId).state, SimUpload::State::aborted);
  EXPECT_TRUE(machine.service.uploads.at(first.fileId).parts.empty());
  EXPECT_THAT(machine.record(second.id)->uploadedParts, SizeIs(1));
  EXPECT_THAT(machine.partFiles(), IsEmpty());
  machine.manager().stopSession(StopKind::keepAtService, std::nullopt);
  EXPECT_EQ(machine.record(second.id)->state, State::active);
  EXPECT_EQ(machine.service.calls("abort"), 1);
  EXPECT_FALSE(machine.manager().activeSession());
}

TEST(UploadManager, keepsNothingRunningForASessionThatWasStoppedWhileItOpened) {
  UploadWorld machine;
  for (int steps = 1; steps < 12; ++steps) {
    std::optional<Result<MacNativeUploadSession>> started;
    machine.process->tasks.start(machine.manager().startSession(UploadWorld::request()),
                                 [&](auto result) { started.emplace(std::move(result)); });
    machine.world.dispatch.runUntil([&] { return machine.manager().activeSession().has_value(); }, 1s);
    machine.manager().stopSession(StopKind::abort, std::nullopt);
    machine.advance(1s);
    ASSERT_TRUE(started);
    EXPECT_FALSE(*started) << "a session that is gone";
  }
  EXPECT_TRUE(machine.world.dispatch.isIdle()) << "a heartbeat of nobody";
}

TEST(UploadManager, ignoresCompletionsOfFormerProcesses) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.world.network.completeUnknownTask({.status = 200});
  machine.advance(1s);
  EXPECT_EQ(machine.logged("Received completion for unknown task: "), 1);
  EXPECT_THAT(machine.record(session.id)->uploadedParts, IsEmpty());
}

TEST(UploadHeartbeat, beatsEveryThirtySecondsWhateverTheAnswer) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.service.token = "another";
  machine.advance(29s);
  EXPECT_EQ(machine.service.calls("pulse"), 0);
  machine.advance(2s);
  EXPECT_EQ(machine.service.calls("pulse"), 1);
  EXPECT_EQ(machine.logged("Authentication token expired"), 1);
  machine.service.token = "token-1";
  machine.advance(30s);
  EXPECT_EQ(machine.service.calls("pulse"), 2);
  EXPECT_EQ(machine.record(session.id)->state, State::active);
  EXPECT_EQ(machine.record(session.id)->errorCount, 0);
}

TEST(UploadVerification, restartsAPartWithoutATransferAfterTenSeconds) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (!UploadWorld::isCall(exchange, "url")) return std::nullopt;
    return HttpResponse{.status = 200, .body = R"({"data":{"uploadUrl":"https://sto rage"}})"};
  };
  EXPECT_TRUE(machine.send(session.id, 1, "a").error().is(MacBackgroundUploadError::invalidPresignedUrl));
  machine.service.interfere = nullptr;
  machine.finish(session.id, 1);
  machine.advance(9900ms);
  EXPECT_EQ(machine.service.calls("put"), 0);
  machine.advance(200ms);
  EXPECT_EQ(machine.logged("Found 1 stuck part(s) with no active task: [1]"), 1);
  EXPECT_EQ(machine.record(session.id)->state, State::completed);
}

TEST(UploadVerification, cancelsAfterThirtySecondsWhatRunsAndDoesNotMove) {
  UploadWorld machine(1, 1000);
  const auto session = machine.start();
  std::map<std::string, int> transfers;
  machine.world.network.fate = [&](const SimExchange& exchange) {
    if (!exchange.isTransfer) return SimFate{};
    ++transfers[exchange.request.url];
    if (UploadWorld::isPut(exchange, 2)) return SimFate{.latency = 100s};  // moves for half of it
    return SimFate{.kind = transfers.size() <= 4 ? SimFate::Kind::stalled : SimFate::Kind::answered};
  };
  for (int part = 1; part <= 6; ++part) EXPECT_TRUE(machine.send(session.id, part, std::string(1000, 'x')));
  machine.finish(session.id, 6);
  machine.advance(29s);
  EXPECT_EQ(transfers.size(), 4u);
  machine.advance(1100ms);
  EXPECT_EQ(machine.logged("Cancelling 3 potentially stuck task(s)"), 1);
  machine.advance(15s);
  EXPECT_EQ(machine.record(session.id)->uploadedParts.size(), 5u);
  EXPECT_EQ(machine.record(session.id)->errorCount, 3);
  EXPECT_EQ(machine.logged("Cancelling"), 1) << "a transfer that moves was cancelled";
}

}  // namespace
}  // namespace quillbeam
