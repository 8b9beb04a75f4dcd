#include <gtest/gtest.h>

#include "app/Connected.h"
#include "app/RecorderEventsChannel.h"
#include "base/TaskScope.h"
#include "channels/InProcessMessenger.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
namespace names = channel_names;

TEST(RecorderChannel, recordsOverTheSocketAndTellsTheUiLayer) {
  SimWorld world;
  Connected ui(world);
  const auto selected = std::get<Value>(ui.call(names::screenCapture, "selectScreenCaptureContent"));
  EXPECT_EQ(selected,
            Value(ValueMap{{"type", "display"}, {"displayName", "Display 1"}, {"displayID", std::int64_t{1}}}));
  EXPECT_EQ(std::get<Value>(ui.call(names::recordingStatistics, "getRecordingStatistics")), Value());

  ASSERT_EQ(ui.startScreen({{"fileName", "Weekly"}, {"teamId", "t1"}, {"recordingStartTimeMs", 1234}}),
            MethodReply(Value()));
  world.dispatch.advance(2s);
  ASSERT_EQ(ui.received.size(), 1u);
  const Value& started = ui.received.front();
  EXPECT_EQ(started.at("event"), Value("started"));
  EXPECT_TRUE(started.at("fileId").asString()->starts_with("pending_"));
  EXPECT_EQ(started.at("fileName"), Value("Weekly"));
  EXPECT_EQ(started.at("teamId"), Value("t1"));
  EXPECT_EQ(started.at("folderId"), Value("recents"));
  EXPECT_EQ(started.at("recordingStartTimeMs").asInteger(), 1234);

  const auto status = std::get<Value>(ui.call(names::macRecorder, "getMacRecordingStatus"));
  EXPECT_EQ(status.at("isRecording"), Value(true));
  EXPECT_NEAR(*status.at("duration").asDouble(), 2, 0.1);

  const auto stopped = std::get<Value>(ui.call(names::macRecorder, "stopMacRecording"));
  EXPECT_EQ(
      stopped,
      Value(ValueMap{{"filePath", "/tmp/meeting.mp4"}, {"usedNativeUpload", false}, {"nativeUploadFileId", nullptr}}));
  const auto figures = std::get<Value>(ui.call(names::recordingStatistics, "getRecordingStatistics"));
  EXPECT_NEAR(*figures.at("durationSeconds").asDouble(), 2, 0.1);
  EXPECT_EQ(figures.at("problem"), Value());
}

TEST(RecorderChannel, answersWhatItCannotDoWithItsCodeAndStartsNothing) {
  SimWorld world;
  Connected ui(world);
  const MethodReply pathRequired = MethodError{"INVALID_ARGUMENTS", "File path required"};
  EXPECT_EQ(ui.call(names::macRecorder, "startMacRecording"), pathRequired);
  EXPECT_EQ(ui.call(names::macRecorder, "startMacRecording", ValueMap{{"filePath", 7}}), pathRequired);
  EXPECT_EQ(ui.startScreen(),
            MethodReply(MethodError{"RECORDING_ERROR", "No window or display selected for screen recording"}));
  world.screenCapture.script.shareableContentError = ScreenCaptureError::noDisplayServer;
  EXPECT_EQ(ui.call(names::screenCapture, "selectScreenCaptureContent"),
            MethodReply(MethodError{"SELECTION_ERROR", "No display server answers"}));
  EXPECT_EQ(ui.call(names::macRecorder, "startmacrecording"), MethodReply(NotImplemented()));
  EXPECT_EQ(ui.call(names::uploadService, "uploadAudio"), MethodReply(Value()));
  EXPECT_EQ(ui.call("io.quillbeam.app.permissions", "checkPermissions"), MethodReply(NotImplemented()));
  EXPECT_TRUE(ui.received.empty());
  EXPECT_FALSE(world.files.exists("/tmp/meeting.mp4"));
}

TEST(NativeHalf, ownsItsDataDirectoryAndStopsARecordingAtTheEnd) {
  SimWorld world;
  Connected ui(world);
  const auto second = NativeHalf::create(ui.platform, {"record", "/run/user/1000/other.sock"});
  ASSERT_FALSE(second);
  EXPECT_TRUE(second.error().is(FilesError::locked));
  const auto running = findRunningNativeHalf(ui.platform.files, ui.platform.places);
  ASSERT_TRUE(running);
  EXPECT_EQ(running->command, "serve");
  EXPECT_EQ(running->socketPath, ui.native->socketPath());

  ui.call(names::screenCapture, "selectScreenCaptureContent");
  ASSERT_EQ(ui.startScreen(), MethodReply(Value()));
  EXPECT_TRUE(isBeingRecorded(ui.platform, "/tmp/meeting.mp4"));
  EXPECT_FALSE(isBeingRecorded(ui.platform, "/tmp/other.mp4"));
  world.dispatch.advance(1s);

  bool ended = false;
  TaskScope tasks(ui.platform.dispatch.main());
  tasks.start(ui.native->shutDown(), [&](Result<void>) { ended = true; });
  ASSERT_TRUE(world.dispatch.runUntil([&] { return ended; }, 5s));
  EXPECT_EQ(world.mediaWriters.lastMovie().status, AssetWriter::Status::completed);
  ui.native.reset();
  EXPECT_FALSE(findRunningNativeHalf(ui.platform.files, ui.platform.places));
}

TEST(RecorderEvents, forwardUploadNotificationsThatAreComplete) {
  SimWorld world;
  Platform platform = world.platform();
  NotificationCenter center(platform.dispatch.main());
  InProcessMessenger native(platform.dispatch.main());
  const Logger logger(platform.systemLog, "io.quillbeam.app.macos", "MainFlutterWindow");
  RecorderEventsChannel events(native, platform.dispatch.main(), center, logger);
  const auto client = native.connectClient();
  std::vector<Value> received;
  MethodChannel ui(*client, std::string(names::macRecorderEvents));
  ui.setCallHandler([&](MethodCall call, MethodResult result) {
    received.push_back(call.arguments);
    result.success();
  });
  world.dispatch.runUntilIdle();

  center.post("macUploadProgressUpdated", {{"progress", 0.5}, {"partNumber", 3}});
  center.post("macUploadProgressUpdated", {{"progress", 0.5}, {"partNumber", 3}, {"fileId", "f"}});
  center.post("macUploadCompleted", {{"sessionId", "s"}, {"fileId", "f"}});
  center.post("macUploadFailed", {{"fileId", "f"}});
  center.post("macRecordingEntryUpdate", {{"event", "initFailed"}, {"fileId", ""}, {"tempFileId", "pending_1"}});
  center.post("macRecordingEntryUpdate", {{"event", 1}, {"fileId", "f"}});
  world.dispatch.runUntilIdle();
  EXPECT_EQ(received, (std::vector<Value>{
                          ValueMap{{"event", "uploadProgress"}, {"fileId", "f"}, {"progress", 0.5}},
                          ValueMap{{"event", "uploadComplete"}, {"fileId", "f"}},
                          ValueMap{{"event", "uploadFailed"}, {"fileId", "f"}, {"error", nullptr}},
                          ValueMap{{"event", "initFailed"}, {"fileId", ""}, {"tempFileId", "pending_1"}},
                      }));
}

}  // namespace
}  // namespace quillbeam
