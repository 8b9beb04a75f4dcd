#include <gtest/gtest.h>

#include <cerrno>

#include "chunking/ChunkUploadError.h"
#include "recording/AVCaptureMicError.h"
#include "recording/AudioRecordingError.h"
#include "recording/Recorder.h"
#include "recording/RecordingRepair.h"
#include "support/SimUploadService.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using Times = std::vector<double>;

const Path output = "/tmp/talk.m4a";

struct AudioRecorder : Recorder {
  using Recorder::Recorder;

  Result<void> start(const Path& path = output) { return Recorder::start({{"recordingMode", "audio_only"}}, path); }
  Result<StopRecordingResult> record(Duration length, const Path& path = output) {
    TRY_VOID(start(path));
    world.dispatch.advance(length);
    return stop();
  }
  SimMovie& tracks() { return world.mediaWriters.lastMovie(); }
  /// What the next launch does.
  void repair() {
    RecordingRepair repair(platform, journal);
    ASSERT_TRUE(await(repair.run()));
  }
  std::string content(const Path& path = output) {
    const Bytes bytes = world.files.read(path).value_or(Bytes());
    return {bytes.begin(), bytes.end()};
  }
  bool isMixed(const Path& path = output) { return content(path).ends_with(": 0x1 1x2.5"); }
};

/// One whose samples come from the test.
struct HandFedAudio {
  HandFedAudio() {
    world.screenCapture.script.stream.samples = SimSamples::byHand;
    EXPECT_TRUE(recorder.start());
    world.dispatch.runUntilIdle();
  }
  void picture(std::int64_t milliseconds) {
    world.screenCapture.stream()->deliverPicture(at(milliseconds));
    world.dispatch.runUntilIdle();
  }
  void sound(std::int64_t milliseconds, OutputType type = OutputType::audio) {
    world.screenCapture.stream()->deliverSound(type, at(milliseconds));
    world.dispatch.runUntilIdle();
  }
  static MediaTime at(std::int64_t milliseconds) { return MediaTime(500'000 + milliseconds, 1000); }
  Times track(std::size_t index) {
    Times times;
    for (const auto& sample : recorder.tracks().sound(index)->samples) {
      times.push_back(sample.presentationTime().seconds() * 1000);
    }
    return times;
  }

  SimWorld world;
  AudioRecorder recorder{world};
};

TEST(AudioRecording, mixesBothTracksIntoTheFileThatWasAskedForInPlaceOfAnOlderOne) {
  SimWorld world;
  AudioRecorder recorder(world);
  ASSERT_TRUE(world.files.writeNew(output, ByteChain(Bytes{1}), Durability::durable));
  ASSERT_TRUE(recorder.start());
  const auto configuration = world.screenCapture.made().back().configuration;
  EXPECT_EQ(configuration.width, 2);
  EXPECT_TRUE(configuration.excludesCurrentProcessAudio);
  const SimMovie& tracks = recorder.tracks();
  EXPECT_EQ(tracks.fileType, MovieFileType::appleM4A);
  EXPECT_TRUE(tracks.path.starts_with("/tmp/multitrack_audio_"));
  EXPECT_EQ(recorder.journal.openRecordings().at(0).mixInto, output);
  world.dispatch.advance(10s);
  EXPECT_NEAR(recorder.manager.report()->duration.seconds(), 10, 0.1);
  EXPECT_EQ(recorder.content(), "\1") << "until the mix is complete";

  const auto stopped = recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->filePath, output);
  EXPECT_EQ(tracks.tracks.size(), 2u);
  EXPECT_NEAR(tracks.duration().seconds(), 10, 0.1) << "the file ends with the sound";
  EXPECT_TRUE(recorder.isMixed());
  EXPECT_FALSE(world.files.exists(tracks.path));
  EXPECT_TRUE(recorder.journal.openRecordings().empty());
  EXPECT_TRUE(recorder.manager.report()->fileIsComplete);
  EXPECT_EQ(world.screenCapture.stream(), nullptr);

  ASSERT_TRUE(recorder.record(2s, "/tmp/second.m4a"));
  EXPECT_TRUE(recorder.isMixed("/tmp/second.m4a"));
}

TEST(AudioRecording, tellsHowFarTheMixIs) {
  SimWorld world;
  world.audioExporter.setSpeed(1);
  AudioRecorder recorder(world);
  ASSERT_TRUE(recorder.start());
  world.dispatch.advance(10s);
  std::optional<Result<StopRecordingResult>> stopped;
  recorder.tasks.start(recorder.manager.stopMacRecording(), [&](auto result) { stopped = std::move(result); });
  world.dispatch.advance(6s);
  const Value status = recorder.manager.getMacRecordingStatus();
  EXPECT_EQ(status.at("isRecording"), Value(false));
  EXPECT_EQ(status.at("isPostProcessing"), Value(true));
  EXPECT_NEAR(*status.at("postProcessingProgress").asDouble(), 0.7, 0.05);
  ASSERT_TRUE(world.dispatch.runUntil([&] { return stopped.has_value(); }, 10s));
  EXPECT_TRUE(recorder.manager.getMacRecordingStatus().at("isPostProcessing").isNil());
}

TEST(AudioTracks, beginEachWithTheirOwnFirstSampleWhicheverComesFirst) {
  HandFedAudio recording;
  recording.sound(0, OutputType::microphone);
  recording.picture(5);
  recording.sound(10, OutputType::microphone);
  recording.sound(1000);
  recording.sound(1010);
  recording.picture(1025);
  EXPECT_EQ(recording.track(0), (Times{0, 10}));
  EXPECT_EQ(recording.track(1), (Times{0, 10}));
  recording.recorder.tracks().sound(1)->isReady = false;
  recording.sound(20, OutputType::microphone);
  ASSERT_TRUE(recording.recorder.stop());
  EXPECT_EQ(recording.track(1), (Times{0, 10})) << "a busy track drops";
  EXPECT_EQ(recording.recorder.tracks().sessionEnd, MediaTime(1020, 1000)) << "as long as the pictures lasted";
  EXPECT_EQ(recording.recorder.printed("🎯 AudioMicrophoneStreamOutput: Final microphone time: 0.02"), 1);
}

TEST(AudioTracks, areMixedWithoutAMicrophoneThatNeverSpoke) {
  HandFedAudio recording;
  recording.sound(0);
  recording.picture(5);
  recording.picture(15);
  ASSERT_TRUE(recording.recorder.stop());
  EXPECT_TRUE(recording.recorder.isMixed());
  EXPECT_EQ(recording.recorder.printed("🎯 AudioMicrophoneStreamOutput: No microphone samples captured"), 1);
}

TEST(AudioRecording, takesTheMicrophoneFromACaptureDeviceOnOlderSystems) {
  SimWorld world;
  world.systemVersion = {14, 4};
  AudioRecorder recorder(world);
  ASSERT_TRUE(recorder.record(3s));
  EXPECT_NEAR(static_cast<double>(recorder.tracks().sound(1)->samples.size()), 300, 10);
  EXPECT_EQ(recorder.printed("🎤 AudioSessionRecorder: Will use AVCaptureDevice fallback for microphone (14.4)"), 1);
  EXPECT_EQ(recorder.printed("🎯 AudioSessionRecorder: AVCapture microphone fallback stopped"), 1);
}

TEST(FailedAudioStart, leavesNothingBehindAndTheNextOneSucceeds) {
  struct Case {
    std::string name;
    std::function<void(SimWorld&)> arrange;
    Error expected;
  };
  const Error broken("Test", 7, "broken");
  const std::vector<Case> cases = {
      {"no display for sound", [](SimWorld& world) { world.screenCapture.script.displayForSound.reset(); },
       AudioRecordingError::noDisplayFound},
      {"capture does not start", [&](SimWorld& world) { world.screenCapture.script.stream.startError = broken; },
       broken},
      {"sound output is refused",
       [&](SimWorld& world) { world.screenCapture.script.stream.addOutputErrors = {{OutputType::audio, broken}}; },
       broken},
      {"writer does not start", [&](SimWorld& world) { world.mediaWriters.refuseNextStart(broken); },
       AudioRecordingError::fileCreationFailed},
      {"no microphone on an older system",
       [](SimWorld& world) {
         world.systemVersion = {14, 0};
         world.captureDevices.script.device.reset();
       },
       AVCaptureMicError::noMicrophoneDevice},
  };
  for (const auto& [name, arrange, expected] : cases) {
    SCOPED_TRACE(name);
    SimWorld world;
    arrange(world);
    AudioRecorder recorder(world);
    const auto started = recorder.start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error().description(), expected.description());
    world.dispatch.runUntilIdle();
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(world.screenCapture.stream(), nullptr);
    EXPECT_EQ(world.files.list("/tmp"), std::vector<std::string>());
    EXPECT_TRUE(recorder.journal.openRecordings().empty());
    EXPECT_TRUE(world.dispatch.isIdle()) << "something still runs";
    world.screenCapture.script = {};
    world.captureDevices.script = {};
    EXPECT_TRUE(recorder.record(1s));
  }
  SimWorld world;
  AudioRecorder recorder(world);
  ASSERT_TRUE(world.files.createDirectories("/tmp/folder"));
  world.files.failBelow("/tmp/sealed", EACCES);
  for (const auto& [path, reason] : {std::pair("/nowhere/talk.m4a", ENOENT), std::pair("/tmp/folder", EISDIR),
                                     std::pair("/tmp/sealed/talk.m4a", EACCES)}) {
    const auto refused = recorder.start(path);
    EXPECT_TRUE(refused.error().is(AudioRecordingError::fileCreationFailed));
    EXPECT_EQ(refused.error().underlying()->code(), reason);
  }
}

TEST(FailedMix, keepsBothTracksNamesThemAndIsTriedAgainAtTheNextLaunch) {
  SimWorld world;
  AudioRecorder recorder(world);
  ASSERT_TRUE(world.files.writeNew(output, ByteChain(Bytes{1}), Durability::durable));
  world.audioExporter.failNext(AudioExporterError::diskFull);
  const auto stopped = recorder.record(5s);
  EXPECT_TRUE(stopped.error().is(AudioRecordingError::postProcessingFailed));
  const Path tracks = recorder.tracks().path;
  EXPECT_TRUE(world.files.exists(tracks));
  EXPECT_EQ(recorder.content(), "\1") << "no partial file, and the old one as it was";
  EXPECT_NE(recorder.manager.report()->problem->description().find(tracks), std::string::npos);
  EXPECT_EQ(recorder.printed("⚠️ AudioSessionRecorder: Both tracks are kept in " + tracks), 1);
  EXPECT_FALSE(recorder.isRecording());
  EXPECT_TRUE(recorder.start().error().is(AudioRecordingError::fileCreationFailed))
      << "the tracks that wait would be mixed over the new recording, or it over them";

  ASSERT_TRUE(world.files.remove(output));
  recorder.repair();
  EXPECT_TRUE(recorder.isMixed());
  EXPECT_FALSE(world.files.exists(tracks));
}

TEST(FailedMix, isNotTriedAgainWhenItCanNeverPass) {
  SimWorld world;
  AudioRecorder recorder(world);
  world.audioExporter.failNext(AudioExporterError::cannotEncode);
  EXPECT_FALSE(recorder.record(5s));
  EXPECT_EQ(recorder.content(recorder.tracks().path), "movie, finished");
  EXPECT_TRUE(recorder.journal.openRecordings().empty());
  EXPECT_EQ(recorder.printed("⚠️ AudioSessionRecorder: Both tracks are kept in " + recorder.tracks().path), 1);
}

TEST(AudioRecording, ofNothingSaysSoAndLeavesNoFile) {
  HandFedAudio recording;
  EXPECT_TRUE(recording.recorder.stop().error().is(AudioRecordingError::postProcessingFailed));
  EXPECT_TRUE(recording.recorder.manager.report()->problem->is(AudioRecordingError::nothingRecorded));
  EXPECT_EQ(recording.world.files.list("/tmp"), std::vector<std::string>());
  EXPECT_TRUE(recording.recorder.journal.openRecordings().empty());
}

TEST(AudioProcessDeath, atAnyMomentIsMendedByTheNextLaunch) {
  for (const Duration moment : {Duration(500ms), Duration(9s), Duration(10'300ms), Duration(14s)}) {
    SCOPED_TRACE(std::chrono::duration<double>(moment).count());
    SimWorld world;
    world.audioExporter.setSpeed(2);
    {
      AudioRecorder recorder(world);
      ASSERT_TRUE(recorder.start());
      world.dispatch.advance(std::min(moment, Duration(10s)));
      if (moment > 10s) recorder.tasks.start(recorder.manager.stopMacRecording());
      if (moment > 10s) world.dispatch.advance(moment - 10s);
      world.die();
    }
    world.restart();
    AudioRecorder next(world);
    next.repair();
    EXPECT_TRUE(next.isMixed());
    EXPECT_TRUE(next.journal.openRecordings().empty());
    EXPECT_EQ(world.files.list("/tmp"), (std::vector<std::string>{"talk.m4a"}));
  }
}

TEST(AudioProcessDeath, neverCostsAFileThatTheUserHas) {
  SimWorld world;
  {
    AudioRecorder recorder(world);
    ASSERT_TRUE(recorder.start());
    world.dispatch.advance(5s);
    world.die();
  }
  world.restart();
  AudioRecorder next(world);
  ASSERT_TRUE(world.files.writeNew(output, ByteChain(Bytes{1}), Durability::durable));
  ASSERT_TRUE(world.files.writeNew("/tmp/talk 2.m4a", ByteChain(Bytes{2}), Durability::durable));
  world.audioExporter.failNext(AudioExporterError::diskFull);
  next.repair();
  EXPECT_TRUE(next.start("/tmp/talk 3.m4a").error().is(AudioRecordingError::fileCreationFailed)) << "it is taken";
  next.repair();
  EXPECT_EQ(next.content(), "\1");
  EXPECT_EQ(next.content("/tmp/talk 2.m4a"), "\2");
  EXPECT_TRUE(next.isMixed("/tmp/talk 3.m4a"));
  EXPECT_EQ(next.printed("⚠️ RecordingRepair: There is a file already: /tmp/talk.m4a; mixing into /tmp/talk 3.m4a"), 1);
  EXPECT_TRUE(next.journal.openRecordings().empty());
}

TEST(EndOfTheProcess, doesNotWaitForALongMixAlsoOfAStopUnderWay) {
  for (const bool isStopping : {false, true}) {
    SCOPED_TRACE(isStopping);
    SimWorld world;
    world.audioExporter.setSpeed(1);
    {
      AudioRecorder recorder(world);
      ASSERT_TRUE(recorder.start());
      world.dispatch.advance(50s);
      if (isStopping) recorder.tasks.start(recorder.manager.stopMacRecording());
      if (isStopping) world.dispatch.advance(5s);
      const MediaTime before = world.dispatch.hostTime();
      ASSERT_TRUE(recorder.await(recorder.manager.stopForTermination()));
      ASSERT_TRUE(recorder.await(recorder.manager.settled()));
      EXPECT_LT((world.dispatch.hostTime() - before).seconds(), 12);
      EXPECT_FALSE(world.files.exists(output));
    }
    AudioRecorder next(world);
    next.repair();
    EXPECT_TRUE(next.isMixed());
  }
}

TEST(UploadedAudio, isAtTheServiceWhenItStopsAndLocalWhenTheServiceFails) {
  SimWorld world;
  SimUploadService service(world.network);
  AudioRecorder recorder(world);
  recorder.apiClient.configure(std::string(SimUploadService::baseUrl), service.token);
  auto request = Recorder::uploadRequest("Talk");
  request.config = {{"recordingMode", "audio_only"}};
  request.filePath = output;
  ASSERT_TRUE(recorder.await(recorder.manager.startMacRecording(request)));
  world.dispatch.advance(23s);
  const auto stopped = recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_TRUE(recorder.isMixed());
  ASSERT_EQ(service.uploads.size(), 1u);
  const SimUpload& upload = service.uploads.begin()->second;
  EXPECT_EQ(stopped->nativeUploadFileId, upload.fileId);
  EXPECT_EQ(upload.source, "multipart-upload-audio-macos");
  ByteChain segments;
  for (const Segment& segment : world.mediaWriters.lastSegmentedMovie().segments) segments.append(segment.bytes);
  EXPECT_EQ(upload.object, segments.flattened());
  EXPECT_TRUE(recorder.stored.getIncompleteRecordings().empty());

  service.interfere = [](const SimExchange&) { return std::optional(HttpResponse{.status = 500}); };
  request.filePath = "/tmp/second.m4a";
  ASSERT_TRUE(recorder.await(recorder.manager.startMacRecording(request)));
  world.dispatch.advance(12s);
  const auto failed = recorder.stop();
  EXPECT_TRUE(failed.error().is(ChunkUploadError::uploadFailed));
  EXPECT_EQ(failed.error().payload()->at("localBackupPath"), Value("/tmp/second.m4a"));
  EXPECT_TRUE(recorder.isMixed("/tmp/second.m4a"));
  EXPECT_EQ(recorder.stored.getIncompleteRecordings().size(), 1u);
}

}  // namespace
}  // namespace quillbeam
