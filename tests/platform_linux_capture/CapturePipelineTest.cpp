#include "platform/linux/capture/CapturePipeline.h"

#include <gtest/gtest.h>

#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimPicture.h"
#include "support/FakeSounds.h"
#include "support/RecordedSamples.h"

namespace quillbeam {
namespace {

using Repeats = PicturePacer::Repeats;

class FakeScreen final : public ScreenSource {
 public:
  struct State {
    ScreenState screen = ScreenState::changed;
    std::optional<Error> error;
    bool unreadable = false;
    int grabs = 0;
  };
  explicit FakeScreen(State& state) : state_(state) {}

  Result<ScreenState> poll() override {
    if (state_.error) return *state_.error;
    return state_.screen;
  }
  Result<std::shared_ptr<const PixelBuffer>> grab() override {
    if (state_.error) return *state_.error;
    if (state_.unreadable) return nullptr;
    ++state_.grabs;
    return std::make_shared<SimPicture>(16, 16, static_cast<std::uint8_t>(state_.grabs));
  }

 private:
  State& state_;
};

/// A pipeline whose time the test tells.
class CapturePipelineTest : public testing::Test {
 protected:
  static constexpr int depth = 3;

  void start(std::vector<OutputType> soundTypes) {
    ASSERT_TRUE(delivery.addOutput(output, OutputType::screen, *queue));
    std::vector<SoundTrack> tracks;
    for (const auto type : soundTypes) {
      ASSERT_TRUE(delivery.addOutput(output, type, *queue));
      tracks.emplace_back(type, sounds, log);
    }
    pipeline.emplace(std::make_unique<FakeScreen>(screen), std::move(tracks), MediaTime(1, 24), delivery);
    begun = pipeline->begin(now);
  }

  /// Runs the outputs after each tick unless they are held up.
  Result<void> ticks(int count, Repeats repeats = Repeats::everySecond) {
    for (int i = 0; i < count; ++i) {
      now = pipeline->nextTickAfter(now);
      TRY_VOID(pipeline->tick(now, repeats));
      if (outputs == Outputs::run) dispatch.runUntilIdle();
    }
    return success;
  }
  /// Between two ticks.
  void stop() {
    now = now + MediaTime(10, 1000);
    pipeline->captureLast();
    pipeline->flush(now);
    dispatch.runUntilIdle();
  }

  enum class Outputs { run, stall };

  SimDispatch dispatch;
  std::unique_ptr<DispatchQueue> queue = dispatch.makeSerialQueue("outputs");
  FakeSounds sounds;
  RecordingLog log;
  RecordedSamples samples;
  RecordingOutput output{samples};
  SampleDelivery delivery{depth};
  FakeScreen::State screen;
  std::optional<CapturePipeline> pipeline;
  MediaTime now{1000'003, 1000};
  MediaTime begun;
  Outputs outputs = Outputs::run;
};

TEST_F(CapturePipelineTest, deliversPicturesAndSoundsInOneTimeOrderFromTheFirstTickOn) {
  start({OutputType::audio, OutputType::microphone});
  ASSERT_TRUE(ticks(48));
  stop();
  EXPECT_TRUE(areInTimeOrder(samples.all()));
  for (const auto type : {OutputType::audio, OutputType::microphone}) {
    const auto blocks = samples.of(type);
    ASSERT_FALSE(blocks.empty());
    EXPECT_EQ(blocks.front().presentationTime(), begun);
    EXPECT_TRUE(areContiguous(blocks));
    EXPECT_LE(now - (blocks.back().presentationTime() + blocks.back().duration()), MediaTime(1, 100))
        << "sound goes on to the stop";
  }
  const auto pictures = samples.of(OutputType::screen);
  ASSERT_EQ(pictures.size(), 49u);
  EXPECT_EQ(pictures.front().presentationTime(), begun);
  EXPECT_EQ(pictures.back().presentationTime(), now);
}

TEST_F(CapturePipelineTest, recordsTimedSilenceForAMissingSoundServerAndTakesItUpWhenItIsThere) {
  sounds.openError = ScreenCaptureError::noSoundServer;
  start({OutputType::audio});
  ASSERT_TRUE(ticks(24));
  ASSERT_EQ(log.lines.size(), 1u) << "said once";
  EXPECT_EQ(log.lines.front().first, LogLevel::error);
  sounds.openError.reset();
  ASSERT_TRUE(ticks(96));
  stop();
  const auto blocks = samples.of(OutputType::audio);
  EXPECT_EQ(blocks.front().presentationTime(), begun);
  EXPECT_TRUE(areContiguous(blocks));
  EXPECT_EQ(blocks.front().block()->samples[11], 0.0f);
  EXPECT_NE(blocks.back().block()->samples[11], 0.0f) << "sound again, not silence";
  EXPECT_EQ(log.lines.back().first, LogLevel::notice);
}

TEST_F(CapturePipelineTest, takesALastPictureOnlyOfAScreenThatChanged) {
  for (const auto last : {ScreenState::unchanged, ScreenState::changed}) {
    CapturePipelineTest::screen = {};
    pipeline.emplace(std::make_unique<FakeScreen>(screen), std::vector<SoundTrack>(), MediaTime(1, 24), delivery);
    pipeline->begin(now);
    ASSERT_TRUE(ticks(1));
    screen.screen = last;
    stop();
    EXPECT_EQ(screen.grabs, last == ScreenState::changed ? 2 : 1);
  }
}

TEST_F(CapturePipelineTest, dropsAndCountsPicturesThatABusyOutputCannotTakeButShowsTheNewestAfterwards) {
  start({});
  outputs = Outputs::stall;
  ASSERT_TRUE(ticks(10));
  EXPECT_EQ(delivery.statistics().framesDelivered, depth);
  EXPECT_EQ(delivery.statistics().framesDropped, 10 - depth);
  EXPECT_EQ(screen.grabs, depth) << "no work for nothing";
  outputs = Outputs::run;
  dispatch.runUntilIdle();
  ASSERT_TRUE(ticks(1));
  EXPECT_EQ(samples.count(OutputType::screen), depth + 1u);
  EXPECT_EQ(delivery.statistics().framesDropped, 10 - depth);
}

TEST_F(CapturePipelineTest, showsAPictureAgainThatWasTakenButFoundTheOutputBusy) {
  start({OutputType::audio});
  outputs = Outputs::stall;
  ASSERT_TRUE(ticks(depth + 2)) << "pictures wait for the sound before they wait for the output";
  screen.screen = ScreenState::unchanged;
  ASSERT_TRUE(ticks(10));
  ASSERT_GT(delivery.statistics().framesDropped, 0);
  outputs = Outputs::run;
  dispatch.runUntilIdle();
  ASSERT_TRUE(ticks(10));
  const auto pictures = samples.of(OutputType::screen);
  EXPECT_EQ(pictures.back().picture()->y().data[0], screen.grabs) << "the newest, without waiting for a second";
}

TEST_F(CapturePipelineTest, endsWhenTheDisplayStaysAwayButNotWhenItOnlyChangesItsMode) {
  start({});
  ASSERT_TRUE(ticks(1));
  screen.screen = ScreenState::absent;
  ASSERT_TRUE(ticks(24));
  screen.screen = ScreenState::changed;
  ASSERT_TRUE(ticks(24));
  screen.screen = ScreenState::absent;
  const auto ended = ticks(100);
  ASSERT_FALSE(ended);
  EXPECT_TRUE(ended.error().is(ScreenCaptureError::displayGone));
  const auto before = samples.count(OutputType::screen);
  stop();
  EXPECT_EQ(samples.count(OutputType::screen), before + 1) << "the last picture, once more, at the end";
}

TEST_F(CapturePipelineTest, repeatsWhileTheScreenCannotBeReadForAMoment) {
  start({});
  ASSERT_TRUE(ticks(1));
  screen.unreadable = true;
  ASSERT_TRUE(ticks(3, Repeats::everyTick));
  EXPECT_EQ(samples.count(OutputType::screen), 4u);
}

}  // namespace
}  // namespace quillbeam
