#include <gtest/gtest.h>

#include <cerrno>

#include "app/Connected.h"
#include "recording/RecordingJournal.h"
#include "scenarios/Restarts.h"
#include "support/SimUploadService.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

namespace names = channel_names;
using Names = std::vector<std::string>;
const Path support = "/home/user/.local/share/io.quillbeam.app";

/// A recording of 25 seconds, uploaded while it runs, on a machine whose disk may fail at any step or whose process may
/// die there; then the next process, and what a user can get back.
struct StreamedRecording {
  explicit StreamedRecording(std::uint64_t seed = 1) : world(seed) {
    world.mediaWriters.setSegmentScript({.mediaSize = 3'000'000});
    ui = std::make_unique<Connected>(world);
    configure();
    ui->call(names::screenCapture, "selectScreenCaptureContent");
    stepsBefore = world.files.stepCount();
  }
  ~StreamedRecording() { end(); }

  void configure() {
    ui->call(names::nativeUploadConfig, "configureNativeApiClient",
             ValueMap{{"baseUrl", SimUploadService::baseUrl}, {"authToken", service.token}});
  }
  /// Ends where the process dies.
  void record() {
    const auto started =
        callRecorder("startMacRecording", {{"filePath", "/tmp/meeting.mp4"},
                                           {"config", ValueMap{{"recordingMode", "screen_with_audio"}}},
                                           {"teamId", "t"},
                                           {"folderId", "f"},
                                           {"fileName", "Weekly"}});
    if (!started || !std::holds_alternative<Value>(*started)) return;
    runUntil([] { return false; }, 25s);
    if (!world.files.isDead()) stopped = callRecorder("stopMacRecording", {});
  }
  std::optional<MethodReply> callRecorder(std::string_view method, ValueMap arguments) {
    std::optional<MethodReply> answer;
    MethodChannel recorder(*ui->client, std::string(names::macRecorder));
    recorder.invoke(method, std::move(arguments), [&](Result<MethodReply> reply) {
      if (reply) answer = *std::move(reply);
    });
    runUntil([&] { return answer.has_value(); }, 3min);
    return answer;
  }
  template <class Condition>
  void runUntil(Condition isMet, Duration atMost) {
    world.dispatch.runUntil([&] { return isMet() || world.files.isDead(); }, atMost);
  }
  void end() {
    if (!ui) return;
    world.die();
    ui.reset();
  }
  void launch() {
    ui = std::make_unique<Connected>(world);
    configure();
    world.dispatch.advance(3min);
  }

  /// The first `count` segments that came out of the writer.
  Bytes delivered(std::size_t count = SIZE_MAX) const {
    ByteChain all;
    if (world.mediaWriters.segmentedMovies().empty()) return {};
    const auto& segments = world.mediaWriters.lastSegmentedMovie().segments;
    for (std::size_t index = 0; index < std::min(count, segments.size()); ++index) all.append(segments[index].bytes);
    return all.flattened();
  }
  /// What died with the process may be the segment that was on its way to the disk, and with the first one its header.
  Bytes deliveredBeforeTheLast() const {
    if (world.mediaWriters.segmentedMovies().empty()) return {};
    const std::size_t count = world.mediaWriters.lastSegmentedMovie().segments.size();
    return count <= 2 ? Bytes() : delivered(count - 1);
  }

  Bytes uploaded() const {
    for (const auto& [fileId, upload] : service.uploads) {
      if (upload.state == SimUpload::State::finalized) return upload.object;
    }
    return {};
  }
  ValueList interrupted() {
    return *std::get<Value>(ui->call(names::recordingRecovery, "getIncompleteRecordings")).asList();
  }
  Bytes recovered() {
    Bytes best;
    for (const Value& recording : interrupted()) {
      const auto answer =
          ui->call(names::recordingRecovery, "recoverRecording", ValueMap{{"recordingId", recording.at("id")}});
      const std::string* file = std::get<Value>(answer).asString();
      const Bytes bytes = file ? world.files.read(*file).value_or(Bytes()) : Bytes();
      if (bytes.size() > best.size()) best = bytes;
    }
    return best;
  }

  /// Nothing is lost, nothing is claimed that is not so, and nothing stays behind a clean-up.
  void check(const Bytes& mustBeThere) {
    const auto holds = [&](const Bytes& bytes) {
      return bytes.size() >= mustBeThere.size() && std::equal(mustBeThere.begin(), mustBeThere.end(), bytes.begin());
    };
    const Bytes all = delivered();
    const Bytes object = uploaded();
    EXPECT_TRUE(object.empty() || object.size() > all.size() || std::equal(object.begin(), object.end(), all.begin()))
        << "the service has something else than what was recorded";
    EXPECT_TRUE(holds(object) || holds(recovered())) << "neither at the service nor recoverable";
    for (const Value& recording : interrupted()) {
      ui->call(names::recordingRecovery, "cleanupRecording", ValueMap{{"recordingId", recording.at("id")}});
    }
    EXPECT_TRUE(interrupted().empty());
    Platform platform = world.platform();
    EXPECT_TRUE(RecordingJournal(platform.files, platform.places, platform.random).openRecordings().empty());
    EXPECT_TRUE(world.files.list(joined(support, "segment_recordings")).value_or(Names()).empty());
  }

  std::uint64_t steps() const { return world.files.stepCount() - stepsBefore; }

  SimWorld world;
  SimUploadService service{world.network};
  std::unique_ptr<Connected> ui;
  std::uint64_t stepsBefore = 0;
  std::optional<MethodReply> stopped;
};

std::uint64_t stepsOfAWholeRecording() {
  StreamedRecording recording;
  recording.record();
  EXPECT_TRUE(recording.stopped && std::holds_alternative<Value>(*recording.stopped));
  EXPECT_EQ(recording.uploaded(), recording.delivered());
  const std::uint64_t steps = recording.steps();
  recording.check(recording.delivered());
  return steps;
}

TEST(RecordingSweep, everyDiskOperationMayFail) {
  const std::uint64_t steps = stepsOfAWholeRecording();
  ASSERT_GT(steps, 60u);
  int uploaded = 0;
  for (std::uint64_t step = 1; step <= steps; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    StreamedRecording recording;
    recording.world.files.failStep(step, step % 2 == 0 ? EIO : ENOSPC);
    recording.record();
    uploaded += recording.uploaded() == recording.delivered() ? 1 : 0;
    recording.end();
    recording.world.restart();
    recording.launch();
    recording.check(recording.delivered());
  }
  EXPECT_GT(uploaded, static_cast<int>(steps / 2)) << "one failed operation seldom costs an upload";
}

TEST(RecordingSweep, theProcessMayDieAtEveryDiskOperation) {
  const std::uint64_t steps = stepsOfAWholeRecording();
  for (std::uint64_t step = 1; step <= steps; ++step) {
    for (std::size_t kind = 0; kind < restarts().size(); ++kind) {
      SCOPED_TRACE("step " + std::to_string(step) + ", kind " + std::to_string(kind));
      StreamedRecording recording(step);
      recording.world.files.dieAtStep(step);
      recording.record();
      recording.end();
      restarts()[kind](recording.world);
      recording.launch();
      recording.check(recording.deliveredBeforeTheLast());
    }
  }
}

}  // namespace
}  // namespace quillbeam
