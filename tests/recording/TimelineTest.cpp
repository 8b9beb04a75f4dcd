#include <gtest/gtest.h>

#include "platform/sim/SimTone.h"
#include "recording/AudioStreamOutput.h"
#include "recording/Recorder.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

/// A running recording whose samples come from the test, stamped relative to `zero`.
struct HandFed {
  explicit HandFed(ValueMap config = Recorder::screen()) : recorder(world) {
    world.screenCapture.script.stream.samples = SimSamples::byHand;
    EXPECT_TRUE(recorder.select());
    EXPECT_TRUE(recorder.start(std::move(config)));
    world.dispatch.runUntilIdle();
  }

  MediaTime at(std::int64_t milliseconds) const { return zero + MediaTime(milliseconds, 1000); }
  void picture(std::int64_t milliseconds, std::optional<FrameStatus> status = FrameStatus::complete) {
    world.screenCapture.stream()->deliverPicture(at(milliseconds), status);
    world.dispatch.runUntilIdle();
  }
  void sound(std::int64_t milliseconds, OutputType type = OutputType::audio) {
    world.screenCapture.stream()->deliverSound(type, at(milliseconds));
    world.dispatch.runUntilIdle();
  }
  SimMovie& movie() { return world.mediaWriters.lastMovie(); }
  static std::vector<double> milliseconds(const SimMovieTrack& track) {
    std::vector<double> times;
    for (const auto& sample : track.samples) times.push_back(sample.presentationTime().seconds() * 1000);
    return times;
  }
  std::vector<double> pictures() { return milliseconds(*movie().pictures()); }
  std::vector<double> system() { return milliseconds(*movie().sound(0)); }
  std::vector<double> microphone() { return milliseconds(*movie().sound(1)); }

  SimWorld world;
  Recorder recorder;
  MediaTime zero{500, 1};
};

using Times = std::vector<double>;

TEST(RecordingTimeline, beginsAtTheFirstCompletePictureAndKeepsSoundInPlace) {
  HandFed recording;
  recording.sound(-300);
  recording.sound(-10, OutputType::microphone);
  recording.picture(-100, FrameStatus::idle);
  recording.picture(-50, std::nullopt);
  EXPECT_FALSE(recording.movie().sessionStart);
  recording.picture(0);
  recording.sound(5);
  recording.sound(15);
  recording.sound(20, OutputType::microphone);
  recording.picture(42);

  EXPECT_EQ(recording.movie().sessionStart, MediaTime::zero());
  EXPECT_EQ(recording.pictures(), (Times{0, 42}));
  EXPECT_EQ(recording.system(), (Times{5, 15}));
  EXPECT_EQ(recording.microphone(), (Times{20}));
  EXPECT_EQ(recording.recorder.printed("🎯 AudioStreamOutput: Waiting for video baseline, skipping early audio"), 1);
  EXPECT_EQ(recording.recorder.printed("🎯 MicrophoneStreamOutput: Waiting for video baseline, skipping early mic"), 1);
}

TEST(RecordingTimeline, shiftsATrackThatBeganMoreThanTenMillisecondsEarlyByItsLeadAsAWhole) {
  HandFed recording;
  recording.picture(0);
  recording.sound(-300);
  recording.sound(-290);
  recording.sound(-10, OutputType::microphone);
  recording.sound(10, OutputType::microphone);
  EXPECT_EQ(recording.system(), (Times{0, 10}));
  EXPECT_EQ(recording.microphone(), (Times{0, 10})) << "exactly 10 ms is no lead: clamped, not shifted";
  EXPECT_EQ(recording.recorder.printed("🎯 AudioStreamOutput: Applying system audio lead offset: 0.3s"), 1);
}

TEST(RecordingTimeline, countsATrackFromItsOwnFirstSampleWhereNoPicturesAreExpected) {
  SimWorld world;
  Platform platform = world.platform();
  ASSERT_TRUE(world.files.createDirectories("/tmp"));
  const auto writer =
      world.mediaWriters.makeMovieWriter("/tmp/sound.mp4", MovieFileType::mpeg4, NetworkUse::optimized).value();
  AssetWriterInput* input = writer->addAudioInput(MacRecordingConfig::audioSettings());
  ASSERT_TRUE(writer->startWriting());
  RecordingTimeline timeline(platform.standardOutput, *writer, RecordingTimeline::Baseline::ownFirstSample);
  timeline.startAssetWriterSessionIfNeeded(MediaTime::zero());
  LevelMeter level;
  const auto queue = platform.dispatch.makeSerialQueue("sound");
  AudioStreamOutput output({*queue, platform.standardOutput, *writer, *input, timeline, level});
  queue->sync([&] {
    output.startSession();
    SimTone tone(440, MediaTime(500, 1));
    for (int i = 0; i < 3; ++i) output.didOutputSampleBuffer(tone.nextBlock(), OutputType::audio);
  });
  EXPECT_EQ(HandFed::milliseconds(*world.mediaWriters.lastMovie().sound(0)), (Times{0, 10, 20}));
  EXPECT_GT(level.take(), 0);
}

TEST(BusyWriter, dropsPicturesAndMicrophoneAtOnceAndTriesSystemAudioOnceMore) {
  HandFed recording;
  recording.picture(0);
  for (auto& track : recording.movie().tracks) track->isReady = false;
  recording.picture(42);
  recording.sound(42, OutputType::microphone);
  recording.sound(42);
  recording.movie().sound(0)->isReady = true;
  recording.world.dispatch.advance(2ms);
  EXPECT_EQ(recording.pictures(), (Times{0}));
  EXPECT_EQ(recording.microphone(), (Times{}));
  EXPECT_EQ(recording.system(), (Times{42}));
  EXPECT_EQ(recording.recorder.printed("🎯 AudioStreamOutput: Retried successfully after brief delay"), 1);

  recording.movie().sound(0)->isReady = false;
  recording.sound(52);
  recording.world.dispatch.advance(1s);
  EXPECT_EQ(recording.system(), (Times{42}));
  EXPECT_EQ(recording.recorder.printed("🎯 AudioStreamOutput: Audio input still not ready after retry, dropping frame"),
            1);
  EXPECT_EQ(recording.recorder.manager.report()->droppedFrames, 1);
}

TEST(FailedWriter, isReportedWhileTheRecordingStaysAndTheStopStillReturnsThePath) {
  HandFed recording;
  recording.picture(0);
  recording.world.mediaWriters.fail(recording.movie(), AssetWriterError::diskFull);
  recording.picture(42);
  recording.sound(42);
  EXPECT_TRUE(recording.recorder.isRecording());
  EXPECT_TRUE(recording.recorder.manager.report()->problem->is(AssetWriterError::diskFull));

  const auto stopped = recording.recorder.stop();
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->filePath, "/tmp/meeting.mp4");
  EXPECT_EQ(recording.recorder.journal.openRecordings().size(), 1u) << "the next launch repairs it";
}

TEST(Stop, endsTheSessionAtTheLastPictureOrAtZeroWithoutOne) {
  HandFed recording;
  recording.picture(0);
  recording.picture(1250);
  ASSERT_TRUE(recording.recorder.stop());
  EXPECT_EQ(recording.movie().sessionEnd, MediaTime(1250, 1000));

  HandFed empty;
  ASSERT_TRUE(empty.recorder.stop());
  EXPECT_EQ(empty.movie().sessionEnd, MediaTime::zero());
  EXPECT_EQ(empty.recorder.printed("🎯 ScreenCaptureStreamOutput: Session ended at zero (no samples)"), 1);
  EXPECT_EQ(empty.recorder.printed("⚠️ Warning: Very few video samples captured (0) - recording may be too short"), 1);
}

}  // namespace
}  // namespace quillbeam
