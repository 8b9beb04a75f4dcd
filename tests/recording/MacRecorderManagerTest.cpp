#include "recording/MacRecorderManager.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "recording/AVCaptureMicError.h"
#include "recording/Recorder.h"
#include "recording/RecordingError.h"
#include "recording/RecordingRepair.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

TEST(ScreenRecording, recordsEverySourceOfTheMainDisplayFromStartToStop) {
  SimWorld world;
  world.screenCapture.script.displays = {{59, 2560, 1440}, {60, 1280, 1024}};
  Recorder recorder(world);
  const auto selected = recorder.select();
  ASSERT_TRUE(selected);
  EXPECT_EQ(selected->display->displayId, 59u);
  ASSERT_TRUE(recorder.start());
  EXPECT_TRUE(recorder.isRecording());
  EXPECT_EQ(recorder.journal.openRecordings().size(), 1u);
  world.dispatch.advance(10s);

  const auto stopped = recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->filePath, "/tmp/meeting.mp4");
  const SimMovie& movie = world.mediaWriters.lastMovie();
  EXPECT_EQ(movie.status, AssetWriter::Status::completed);
  EXPECT_EQ(movie.pictures()->video->width, 1920);
  EXPECT_EQ(movie.pictures()->video->height, 1080);
  EXPECT_NEAR(movie.sessionEnd->seconds(), 10, 0.1);
  ASSERT_EQ(movie.tracks.size(), 3u);
  for (const auto& track : movie.tracks) EXPECT_TRUE(track->isFinished);
  for (const std::size_t sound : {0, 1}) {
    const auto& samples = movie.sound(sound)->samples;
    EXPECT_NEAR(static_cast<double>(samples.size()), 1000, 10);
    for (std::size_t i = 1; i < samples.size(); ++i) {
      const SampleBuffer& before = samples[i - 1];
      ASSERT_EQ(samples[i].presentationTime(), before.presentationTime() + before.duration()) << "block " << i;
    }
  }
  EXPECT_FALSE(recorder.isRecording());
  EXPECT_EQ(world.screenCapture.stream(), nullptr);
  EXPECT_TRUE(recorder.journal.openRecordings().empty());
  EXPECT_EQ(recorder.manager.report()->videoFrames, static_cast<std::int64_t>(movie.pictures()->samples.size()) - 1)
      << "the last picture only marks the end";
}

TEST(ScreenRecording, leavesOutTheSourcesThatAreSwitchedOff) {
  SimWorld world;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  ASSERT_TRUE(recorder.start({{"recordingMode", "screen_with_audio"}, {"includeMicrophone", false}}));
  EXPECT_FALSE(world.screenCapture.made().back().configuration.captureMicrophone);
  EXPECT_TRUE(world.screenCapture.made().back().configuration.capturesAudio);
  EXPECT_FALSE(world.screenCapture.stream()->hasOutput(OutputType::microphone));
  EXPECT_EQ(world.mediaWriters.lastMovie().tracks.size(), 2u);
  EXPECT_EQ(recorder.printed("🎤 Microphone recording disabled in configuration"), 1);
}

TEST(ScreenRecording, takesTheMicrophoneFromACaptureDeviceOnOlderSystems) {
  SimWorld world;
  world.systemVersion = {14, 4};
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  ASSERT_TRUE(recorder.start());
  EXPECT_FALSE(world.screenCapture.stream()->hasOutput(OutputType::microphone));
  ASSERT_NE(world.captureDevices.session(), nullptr);
  world.dispatch.advance(3s);
  ASSERT_TRUE(recorder.stop());
  EXPECT_NEAR(static_cast<double>(world.mediaWriters.lastMovie().sound(1)->samples.size()), 300, 10);
  EXPECT_EQ(world.captureDevices.session(), nullptr);
  EXPECT_EQ(recorder.printed("🎯 AVCapture microphone fallback stopped"), 1);
}

/// Every way in which a start can fail half-way; each leaves nothing running and nothing behind.
TEST(FailedStart, closesEverythingItOpenedAndTheNextOneSucceeds) {
  struct Case {
    std::string name;
    std::function<void(SimWorld&)> arrange;
    Error expected;
  };
  const Error broken("Test", 7, "broken");
  const std::vector<Case> cases = {
      {"stream is not made", [&](SimWorld& world) { world.screenCapture.script.makeStreamError = broken; }, broken},
      {"microphone output is refused",
       [&](SimWorld& world) { world.screenCapture.script.stream.addOutputErrors = {{OutputType::microphone, broken}}; },
       broken},
      {"capture does not start", [&](SimWorld& world) { world.screenCapture.script.stream.startError = broken; },
       broken},
      {"writer does not start", [&](SimWorld& world) { world.mediaWriters.refuseNextStart(broken); },
       RecordingError::fileCreationFailed},
      {"writer is not made", [&](SimWorld& world) { world.mediaWriters.refuseNextWriter(broken); }, broken},
      {"no microphone on an older system",
       [](SimWorld& world) {
         world.systemVersion = {14, 0};
         world.captureDevices.script.device.reset();
       },
       AVCaptureMicError::noMicrophoneDevice},
      {"microphone can't be opened on an older system",
       [&](SimWorld& world) {
         world.systemVersion = {14, 0};
         world.captureDevices.script.inputError = broken;
       },
       AVCaptureMicError::inputCreationFailed},
      {"screen access is denied",
       [](SimWorld& world) { world.permissions.screenCaptureAccess = world.permissions.grantsScreenCapture = false; },
       RecordingError::screenCaptureNotSupported},
  };
  for (const auto& [name, arrange, expected] : cases) {
    SCOPED_TRACE(name);
    SimWorld world;
    arrange(world);
    Recorder recorder(world);
    ASSERT_TRUE(recorder.select());
    const auto started = recorder.start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error().code(), expected.code());
    EXPECT_EQ(started.error().domain(), expected.domain());
    EXPECT_EQ(recorder.manager.report()->problem->description(), started.error().description());
    world.dispatch.runUntilIdle();
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(world.screenCapture.stream(), nullptr);
    EXPECT_EQ(world.captureDevices.session(), nullptr);
    EXPECT_FALSE(world.files.exists("/tmp/meeting.mp4"));
    EXPECT_TRUE(recorder.journal.openRecordings().empty());
    EXPECT_TRUE(world.dispatch.isIdle()) << "something still runs";
  }
}

TEST(FailedStart, namesWhatIsNotThere) {
  SimWorld world;
  Recorder recorder(world);
  EXPECT_TRUE(recorder.start().error().is(RecordingError::noContentSelected));
  EXPECT_TRUE(recorder.start({{"recordingMode", "hologram"}}).error().is(RecordingError::invalidRecordingMode));
  world.screenCapture.script.displays.clear();
  EXPECT_TRUE(recorder.select().error().is(RecordingError::noDisplayFound));
}

TEST(FailedStart, leavesAnExistingFileAlone) {
  SimWorld world;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  ASSERT_TRUE(world.files.writeNew("/tmp/meeting.mp4", ByteChain(Bytes{1, 2, 3}), Durability::durable));
  EXPECT_TRUE(recorder.start().error().is(AssetWriterError::fileExists));
  EXPECT_EQ(world.files.read("/tmp/meeting.mp4"), (Bytes{1, 2, 3}));
}

TEST(TwoStarts, onlyTheFirstOneRecordsWhateverPhaseItIsIn) {
  SimWorld world;
  world.screenCapture.script.stream.startTakes = 200ms;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  std::optional<Result<void>> first;
  recorder.tasks.start(recorder.manager.startMacRecording(Recorder::request()),
                       [&](Result<void> started) { first = started; });
  EXPECT_TRUE(recorder.start(Recorder::screen(), "/tmp/second.mp4").error().is(RecordingError::alreadyRecording));
  ASSERT_TRUE(world.dispatch.runUntil([&] { return first.has_value(); }, 1s));
  EXPECT_TRUE(recorder.start(Recorder::screen(), "/tmp/third.mp4").error().is(RecordingError::alreadyRecording));

  std::optional<Result<StopRecordingResult>> stopped;
  recorder.tasks.start(recorder.manager.stopMacRecording(), [&](auto result) { stopped = std::move(result); });
  EXPECT_TRUE(recorder.start(Recorder::screen(), "/tmp/fourth.mp4").error().is(RecordingError::alreadyRecording));
  ASSERT_TRUE(world.dispatch.runUntil([&] { return stopped.has_value(); }, 5s));
  EXPECT_EQ((*stopped)->filePath, "/tmp/meeting.mp4");
  EXPECT_EQ(world.mediaWriters.movies().size(), 1u);
  EXPECT_TRUE(recorder.start(Recorder::screen(), "/tmp/fifth.mp4"));
}

TEST(StopDuringStart, waitsForTheStartAndStopsWhatCameOfIt) {
  SimWorld world;
  world.screenCapture.script.stream.startTakes = 200ms;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  recorder.tasks.start(recorder.manager.startMacRecording(Recorder::request()));
  const auto stopped = recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->filePath, "/tmp/meeting.mp4");
  EXPECT_FALSE(recorder.isRecording());
}

TEST(StopWithoutRecording, answersAnEmptyResult) {
  SimWorld world;
  Recorder recorder(world);
  const auto stopped = recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->toValue(),
            Value(ValueMap{{"filePath", nullptr}, {"usedNativeUpload", false}, {"nativeUploadFileId", nullptr}}));
}

TEST(StreamThatEndsByItself, isReportedAndKeepsTheRecordingUntilItIsStopped) {
  SimWorld world;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.select());
  ASSERT_TRUE(recorder.start());
  world.dispatch.advance(2s);
  world.screenCapture.stream()->stopByItself(ScreenCaptureError::displayGone);
  world.dispatch.advance(1s);
  EXPECT_TRUE(recorder.isRecording());
  EXPECT_TRUE(recorder.manager.report()->problem->is(ScreenCaptureError::displayGone));
  ASSERT_TRUE(recorder.stop());
  EXPECT_EQ(world.mediaWriters.lastMovie().status, AssetWriter::Status::completed);
  EXPECT_NEAR(world.mediaWriters.lastMovie().sessionEnd->seconds(), 2, 0.1);
}

TEST(ProcessDeath, leavesARecordByWhichTheNextLaunchRepairsTheFile) {
  SimWorld world;
  {
    Recorder recorder(world);
    ASSERT_TRUE(recorder.select());
    ASSERT_TRUE(recorder.start());
    world.dispatch.advance(5s);
    world.die();
  }
  world.restart();
  Recorder next(world);
  RecordingRepair repair(next.platform, next.journal);
  ASSERT_TRUE(next.await(repair.run()));
  EXPECT_TRUE(next.journal.openRecordings().empty());
  const auto again = world.mediaWriters.repair("/tmp/meeting.mp4");
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->wasComplete);
}

TEST(Repair, keepsTheRecordOfAFileThatCannotBeReadNowAndDropsThatOfOneThatIsGone) {
  SimWorld world;
  Recorder recorder(world);
  ASSERT_TRUE(recorder.journal.open("/tmp/gone.mp4", world.dispatch.now()));
  RecordingRepair repair(recorder.platform, recorder.journal);
  ASSERT_TRUE(recorder.await(repair.run()));
  EXPECT_TRUE(recorder.journal.openRecordings().empty());

  ASSERT_TRUE(recorder.journal.open("/media/stick/meeting.mp4", world.dispatch.now()));
  world.files.failBelow("/media/stick", EIO);
  ASSERT_TRUE(recorder.await(repair.run()));
  EXPECT_EQ(recorder.journal.openRecordings().size(), 1u);
}

TEST(PauseMark, changesOnlyWhileRecordingAndOnlyOnce) {
  SimWorld world;
  Recorder recorder(world);
  using Change = MacRecorderManager::PauseChange;
  EXPECT_EQ(recorder.manager.pause(), Change::unchanged);
  ASSERT_TRUE(recorder.select());
  ASSERT_TRUE(recorder.start());
  EXPECT_EQ(recorder.manager.pause(), Change::changed);
  EXPECT_EQ(recorder.manager.pause(), Change::unchanged);
  EXPECT_EQ(recorder.manager.getMacRecordingStatus().at("isPaused"), Value(true));
  EXPECT_EQ(recorder.manager.resume(), Change::changed);
  EXPECT_EQ(recorder.manager.resume(), Change::unchanged);
}

}  // namespace
}  // namespace quillbeam
