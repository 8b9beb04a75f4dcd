#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using State = MacUploadSessionState;
using StopKind = UploadWorld::StopKind;

/// Addresses and times at which a part's transfers began.
struct Attempts {
  Attempts(UploadWorld& machine, int part, SimFate fate) {
    machine.world.network.fate = [this, &machine, part, fate](const SimExchange& exchange) {
      if (!UploadWorld::isPut(exchange, part)) return SimFate{};
      urls.insert(exchange.request.url);
      times.push_back(machine.time());
      return fate;
    };
  }
  std::set<std::string> urls;
  std::vector<Duration> times;
};

TEST(UploadManager, makesAFileOfTheParts) {
  UploadWorld machine;
  auto request = UploadWorld::request();
  request.localBackupPath = "/home/user/Videos/meeting.mp4";
  request.tempFileId = "temp-1";
  const auto session = machine.start(request);
  ASSERT_EQ(machine.process->posted.size(), 1u);
  EXPECT_EQ(machine.process->posted[0].userInfo, ValueMap({{"event", "sessionReady"},
                                                           {"fileId", "file-1"},
                                                           {"fileName", "meeting.mp4"},
                                                           {"teamId", "team"},
                                                           {"folderId", "folder"},
                                                           {"localBackupPath", "/home/user/Videos/meeting.mp4"},
                                                           {"tempFileId", "temp-1"}}));
  EXPECT_EQ(machine.record(session.id)->state, State::active);
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  EXPECT_THAT(machine.partFiles(), ElementsAre(session.id + "_part1.chunk"));
  machine.advance(1s);
  EXPECT_EQ(machine.manager().getCurrentProgress(std::nullopt), 0);
  EXPECT_TRUE(machine.send(session.id, 2, "bbbb"));
  EXPECT_TRUE(machine.send(std::nullopt, 3, "c"));
  const auto outcome = machine.finish(session.id, 3);
  machine.advance(1s);

  ASSERT_TRUE(outcome->has_value());
  EXPECT_TRUE(**outcome);
  EXPECT_EQ(machine.object("file-1"), "aaaabbbbc");
  EXPECT_EQ(machine.service.uploads.at("file-1").name, "meeting.mp4");
  EXPECT_TRUE(machine.service.allExpected());
  const auto record = machine.record(session.id);
  EXPECT_EQ(record->state, State::completed);
  EXPECT_EQ(record->uploadedParts.at(0).etag, "etag-1-1");
  EXPECT_EQ(record->totalBytesUploaded, 9);
  EXPECT_THAT(machine.partFiles(), IsEmpty());
  EXPECT_FALSE(machine.manager().getSession(session.id));
  const auto& posted = machine.process->posted;
  ASSERT_EQ(posted.size(), 5u);
  EXPECT_EQ(posted[1].userInfo, ValueMap({{"progress", 0.0}, {"partNumber", 1}, {"fileId", "file-1"}}));
  EXPECT_EQ(posted[3].userInfo.find("progress")->asDouble(), 1.0);
  EXPECT_EQ(posted[4].name, "macUploadCompleted");
  EXPECT_EQ(posted[4].userInfo, ValueMap({{"sessionId", session.id}, {"fileId", "file-1"}}));
  machine.advance(60s);
  EXPECT_EQ(machine.service.calls("pulse"), 0) << "the heartbeat ends with the upload";
}

TEST(UploadManager, leavesNothingOfASessionThatTheServiceRefused) {
  UploadWorld machine;
  machine.service.interfere = [](const SimExchange&) { return HttpResponse{.status = 500, .body = "no"}; };
  const auto started = machine.process->await(machine.manager().startSession(UploadWorld::request()));
  EXPECT_EQ(started.error().description(), "HTTP 500: no");
  EXPECT_FALSE(machine.manager().activeSession());
  EXPECT_THAT(machine.names("native_upload_sessions"), IsEmpty());
  EXPECT_TRUE(machine.send(std::nullopt, 1, "a").error().is(MacBackgroundUploadError::noActiveSession));
}

TEST(UploadManager, retriesAPartEveryTwoSecondsWithAnAddressOfItsOwnThenGivesItUp) {
  UploadWorld machine;
  const auto session = machine.start();
  Attempts attempts(machine, 3, {});
  machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (UploadWorld::isPut(exchange, 3)) return HttpResponse{.status = 403};
    return std::nullopt;
  };
  EXPECT_TRUE(machine.send(session.id, 3, "cccc"));
  machine.advance(1s);
  EXPECT_THAT(machine.partFiles(), SizeIs(1));
  machine.advance(1min);
  ASSERT_EQ(attempts.times.size(), 5u);
  EXPECT_EQ(attempts.urls.size(), 5u);
  for (std::size_t i = 1; i < 5; ++i) {
    EXPECT_GE(attempts.times[i] - attempts.times[i - 1], 2s);
    EXPECT_LT(attempts.times[i] - attempts.times[i - 1], 2100ms);
  }
  const auto record = machine.record(session.id);
  EXPECT_EQ(record->failedPart(3)->retryCount, 5);
  EXPECT_EQ(record->lastError, "HTTP error: 403");
  EXPECT_EQ(record->errorCount, 5);
  EXPECT_THAT(machine.partFiles(), IsEmpty());
}

TEST(UploadManager, keepsTheFileOfAPartThatGotNoAnswer) {
  UploadWorld machine;
  const auto session = machine.start();
  Attempts attempts(machine, 1, {.kind = SimFate::Kind::noAnswer});
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  machine.advance(1min);
  EXPECT_EQ(attempts.times.size(), 5u);
  EXPECT_EQ(machine.record(session.id)->lastError, "No HTTP response received for upload");
  EXPECT_THAT(machine.partFiles(), SizeIs(1));
}

TEST(UploadManager, takesTheNewestIncompleteSessionForTheActiveOne) {
  UploadWorld machine;
  const auto first = machine.start();
  machine.advance(1s);
  const auto second = machine.start();
  EXPECT_EQ(machine.manager().activeSession()->id, second.id);
  EXPECT_TRUE(machine.send(std::nullopt, 1, "x"));
  machine.finish(second.id, 1);
  machine.advance(1s);
  EXPECT_EQ(machine.object(second.fileId), "x");
  EXPECT_EQ(machine.manager().activeSession()->id, first.id);
}

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
  EXPECT_TRUE(machine.service.uploads.at(first.fileId).parts.at(1).usedUrls.empty());
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

TEST(UploadManager, doesNotSendAPartTwiceAtATime) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.world.network.fate = [](const SimExchange& exchange) {
    return SimFate{.latency = exchange.isTransfer ? 1s : 20ms};
  };
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa")) << "it is under way";
  machine.advance(100ms);
  EXPECT_EQ(machine.world.network.runningTransfers(), 1);
  machine.advance(5s);
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa")) << "it is there";
  machine.advance(5s);
  EXPECT_EQ(machine.service.calls("put"), 1);
  EXPECT_THAT(machine.manager().getSession(session.id)->pendingParts, IsEmpty());
  EXPECT_THAT(machine.partFiles(), IsEmpty());
}

TEST(UploadManager, ignoresCompletionsOfFormerProcesses) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.world.network.completeUnknownTask({.status = 200});
  machine.advance(1s);
  EXPECT_EQ(machine.logged("Received completion for unknown task: "), 1);
  EXPECT_THAT(machine.record(session.id)->uploadedParts, IsEmpty());
}

// ---- the end of an upload

TEST(UploadFinalization, thatTheServiceRefusesFailsTheUpload) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "a"));
  machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (UploadWorld::isCall(exchange, "finalize")) return HttpResponse{.status = 500, .body = "oops"};
    return std::nullopt;
  };
  const auto outcome = machine.finish(session.id, 1);
  machine.advance(200s);
  EXPECT_EQ((**outcome).error().description(), "HTTP 500: oops");
  EXPECT_EQ(machine.record(session.id)->state, State::failed);
  EXPECT_EQ(machine.record(session.id)->lastError, "HTTP 500: oops");
  EXPECT_EQ(machine.process->posted.back().userInfo,
            ValueMap({{"sessionId", session.id}, {"fileId", "file-1"}, {"error", "HTTP 500: oops"}}));
  EXPECT_EQ(machine.process->posted.back().name, "macUploadFailed");
  EXPECT_EQ(machine.service.calls("finalize"), 1);
  EXPECT_TRUE(machine.world.dispatch.isIdle());
}

TEST(UploadFinalization, outlastsTheCallerWhoWaitsForTwoMinutes) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "a"));
  machine.world.network.setRoute(false);
  const auto outcome = machine.finish(session.id, 1);
  machine.advance(119s);
  EXPECT_FALSE(outcome->has_value());
  machine.advance(2s);
  ASSERT_TRUE(outcome->has_value());
  EXPECT_EQ((**outcome).error().description(), "Upload finalization timed out after 120 seconds");
  machine.advance(9s);
  machine.world.network.setRoute(true);
  machine.advance(1s);
  EXPECT_EQ(machine.record(session.id)->state, State::completed);
  EXPECT_EQ(machine.process->count("macUploadCompleted"), 1);
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
  EXPECT_EQ(machine.service.uploads.at("file-1").pulses, 1);
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

TEST(UploadVerification, takesUpARetryThatGotNoAddress) {
  UploadWorld machine;
  const auto session = machine.start();
  bool isDown = true;
  machine.service.interfere = [&](const SimExchange& exchange) -> std::optional<HttpResponse> {
    const bool isAsked = machine.service.calls("url") > 0 || UploadWorld::isPut(exchange);
    return isDown && isAsked ? std::optional(HttpResponse{.status = 503}) : std::nullopt;
  };
  EXPECT_TRUE(machine.send(session.id, 1, "a"));
  machine.advance(5s);
  EXPECT_EQ(machine.logged("Failed to retry part 1: HTTP 503"), 1);
  isDown = false;
  machine.finish(session.id, 1);
  machine.advance(15s);
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
