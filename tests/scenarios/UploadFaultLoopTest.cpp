#include <gtest/gtest.h>

#include <cerrno>

#include "scenarios/Restarts.h"
#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using State = MacUploadSessionState;

/// A small upload from the configuration of the client over an orderly end in its middle to the finished file, as far
/// as it gets: the disk may fail at any step, or the process die.
struct SmallUpload {
  SmallUpload() { machine.crash(); }

  void run() {
    begin();
    if (isDead()) return;
    std::ignore = machine.process->await(machine.manager().prepareForTermination());
    if (isDead()) return;
    machine.process.reset();
    machine.world.restart();
    goOn();
    machine.advance(3min);
  }
  void begin() {
    machine.process = std::make_unique<UploadProcess>(machine.world);
    machine.process->apiClient.configure(std::string(SimUploadService::baseUrl), machine.service.token);
    const auto started = machine.process->await(machine.manager().startSession(UploadWorld::request()));
    if (!started) return;
    int part = 0;
    for (const char* text : {"aaaa", "bbbb", "c"}) {
      if (machine.send(started->id, ++part, text)) handedOver += text;
      if (part == 1) machine.advance(1s);
    }
    machine.finish(started->id, static_cast<int>(machine.manager().getSession(started->id)->pendingParts.size() +
                                                 machine.manager().getSession(started->id)->uploadedParts.size()));
  }
  void goOn() {
    machine.process = std::make_unique<UploadProcess>(machine.world);
    if (!machine.process->apiClient.isConfigured()) {
      machine.process->apiClient.configure(std::string(SimUploadService::baseUrl), machine.service.token);
    }
    std::ignore = machine.process->await(machine.manager().resumeIncompleteSessions());
    std::ignore = machine.process->await(machine.manager().sweepLeftovers());
  }
  bool isDead() const { return machine.world.files.isDead(); }

  /// Nothing is claimed that is not so, and what was begun and lost can be uploaded anew.
  void check() {
    machine.launch();
    machine.advance(3min);
    std::size_t records = 0;
    for (const auto& session : machine.process->storage.loadAllSessions()) {
      ++records;
      EXPECT_TRUE(session.state != State::completed || machine.object(session.fileId) == handedOver);
    }
    const auto names = machine.names("native_upload_sessions");
    EXPECT_EQ(records, names.size()) << "a record does not decode, or a temporary file is left";
    for (const auto& name : machine.names("")) EXPECT_FALSE(isTemporaryName(name)) << name;
    for (const auto& file : machine.partFiles()) {
      const auto owner = machine.record(sessionOfPartFile(file).value_or(""));
      EXPECT_TRUE(owner && owner->isIncomplete()) << file;
    }
    if (!machine.process->apiClient.isConfigured()) {
      machine.process->apiClient.configure(std::string(SimUploadService::baseUrl), machine.service.token);
    }
    const auto again = machine.start();
    EXPECT_TRUE(machine.send(again.id, 1, "again"));
    machine.finish(again.id, 1);
    machine.advance(1s);
    EXPECT_EQ(machine.record(again.id)->state, State::completed);
  }
  std::optional<State> stateOfFirst() {
    for (const auto& session : machine.process->storage.loadAllSessions()) {
      if (session.fileId == "file-1") return session.state;
    }
    return std::nullopt;
  }

  UploadWorld machine{1, 4};
  std::string handedOver;
};

std::uint64_t stepsOfAWholeUpload() {
  SmallUpload upload;
  const auto before = upload.machine.world.files.stepCount();
  upload.run();
  EXPECT_EQ(upload.stateOfFirst(), State::completed);
  EXPECT_EQ(upload.machine.object("file-1"), "aaaabbbbc");
  return upload.machine.world.files.stepCount() - before;
}

TEST(UploadFaultLoop, everyDiskOperationMayFail) {
  const std::uint64_t steps = stepsOfAWholeUpload();
  ASSERT_GT(steps, 50u);
  int completed = 0;
  for (std::uint64_t step = 1; step <= steps; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    SmallUpload upload;
    upload.machine.world.files.failStep(step, step % 2 == 0 ? EIO : ENOSPC);
    upload.run();
    completed += upload.stateOfFirst() == State::completed ? 1 : 0;
    upload.machine.crash();
    upload.check();
  }
  EXPECT_GT(completed, static_cast<int>(steps / 2)) << "one failed operation seldom costs an upload";
}

TEST(UploadFaultLoop, theProcessMayDieAtEveryDiskOperation) {
  const std::uint64_t steps = stepsOfAWholeUpload();
  for (std::uint64_t step = 1; step <= steps; ++step) {
    for (std::size_t kind = 0; kind < restarts().size(); ++kind) {
      SCOPED_TRACE("step " + std::to_string(step) + ", kind " + std::to_string(kind));
      SmallUpload upload;
      upload.machine.world.files.dieAtStep(step);
      upload.run();
      upload.machine.world.die();
      upload.machine.process.reset();
      restarts()[kind](upload.machine.world);
      upload.check();
    }
  }
}

}  // namespace
}  // namespace quillbeam
