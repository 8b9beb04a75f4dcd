#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using State = MacUploadSessionState;

void setRecord(UploadWorld& machine, const std::string& id, const std::function<void(MacNativeUploadSession&)>& edit) {
  auto session = *machine.record(id);
  edit(session);
  machine.process->storage.saveSession(session);
  machine.process->await(machine.process->storage.flushed()).value();
}

TEST(UploadResume, callsARecordingThatWasCutOffFailed) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  machine.crash();
  EXPECT_THAT(machine.partFiles(), SizeIs(1));
  machine.launch();
  EXPECT_EQ(machine.record(session.id)->state, State::failed);
  EXPECT_EQ(machine.record(session.id)->lastError, "Recording interrupted by app termination");
  EXPECT_THAT(machine.partFiles(), IsEmpty());
  EXPECT_TRUE(machine.world.dispatch.isIdle());
  EXPECT_EQ(machine.service.calls("abort"), 0);
}

TEST(UploadResume, leavesAFinalisationThatWasBegunAlone) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "a"));
  machine.advance(1s);
  setRecord(machine, session.id, [](auto& record) { record.state = State::completing, record.totalPartsExpected = 1; });
  machine.crash();
  machine.launch();
  machine.advance(31s);
  EXPECT_EQ(machine.service.calls("finalize"), 0);
  EXPECT_EQ(machine.service.calls("pulse"), 1);
  EXPECT_EQ(machine.record(session.id)->state, State::completing);
}

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
  EXPECT_EQ(machine.process->count("macUploadCompleted"), 1);
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

TEST(UploadResume, startsNothingInAProcessThatEnds) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "a"));
  machine.finish(session.id, 1);
  machine.endOrderly();
  machine.process = std::make_unique<UploadProcess>(machine.world);
  machine.process->tasks.start(machine.manager().resumeIncompleteSessions());
  EXPECT_TRUE(machine.process->await(machine.manager().prepareForTermination()));
  machine.advance(1s);
  EXPECT_TRUE(machine.world.dispatch.isIdle());
  EXPECT_EQ(machine.record(session.id)->state, State::uploading);
}

TEST(UploadAbort, reachesSessionsThatAreOnlyOnDisk) {
  UploadWorld machine;
  const auto session = machine.start();
  EXPECT_TRUE(machine.send(session.id, 1, "aaaa"));
  machine.crash();
  machine.process = std::make_unique<UploadProcess>(machine.world);
  const auto abort = [&](const std::string& id) { return machine.process->await(machine.manager().abortSession(id)); };
  machine.world.network.setRoute(false);
  EXPECT_FALSE(abort(session.id));
  EXPECT_EQ(machine.record(session.id)->state, State::active) << "the service does not know yet";
  machine.world.network.setRoute(true);
  EXPECT_TRUE(abort(session.id));
  EXPECT_EQ(machine.record(session.id)->state, State::aborted);
  EXPECT_EQ(machine.service.uploads.at("file-1").state, SimUpload::State::aborted);
  EXPECT_THAT(machine.partFiles(), IsEmpty());
  EXPECT_TRUE(abort(session.id).error().is(MacBackgroundUploadError::noActiveSession));
  EXPECT_TRUE(abort("../escape").error().is(MacBackgroundUploadError::noActiveSession));
  setRecord(machine, session.id, [](auto& record) { record.state = State::failed; });
  EXPECT_TRUE(abort(session.id)) << "the service no longer knows it";
}

TEST(UploadSweep, removesWhatNoIncompleteSessionOwns) {
  UploadWorld machine;
  const auto session = machine.start();
  machine.world.network.fate = [](const SimExchange& exchange) {
    return SimFate{.latency = exchange.isTransfer ? 10s : 20ms};
  };
  EXPECT_TRUE(machine.send(session.id, 2, "bbbb"));
  const auto put = [&](const char* name) {
    EXPECT_TRUE(machine.world.files.writeNew(joined(Path(UploadWorld::root), name), {}, Durability::cached));
  };
  for (const char* name : {"temp_chunks/GONE_part1.chunk", "temp_chunks/.9.tmp", "temp_chunks/other",
                           "native_upload_sessions/.8.tmp", "native_upload_sessions/odd.json", ".7.tmp"}) {
    put(name);
  }
  machine.process->await(machine.manager().sweepLeftovers()).value();
  machine.world.dispatch.runUntilIdle();
  EXPECT_THAT(machine.partFiles(), ElementsAre(session.id + "_part2.chunk"));
  EXPECT_THAT(machine.names("native_upload_sessions"), ElementsAre(session.id + ".json", "odd.json"));
  EXPECT_THAT(machine.names(""), ElementsAre("MacNativeApiConfig.json", "native_upload_sessions", "temp_chunks"));
}

}  // namespace
}  // namespace quillbeam
