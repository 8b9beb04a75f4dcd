#include "platform/linux/capture/CapturePipeline.h"

#include <gtest/gtest.h>

#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimPicture.h"
#include "support/FakeSounds.h"
#include "support/RecordedSamples.h"

namespace quillbeam {
namespace {

class FakeScreen final : public ScreenSource {
 public:
  struct State {
    ScreenState screen = ScreenState::changed;
    int grabs = 0;
  };
  explicit FakeScreen(State& state) : state_(state) {}

  Result<ScreenState> poll() override { return state_.screen; }
  Result<std::shared_ptr<const PixelBuffer>> grab() override {
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
  Result<void> ticks(int count) {
    for (int i = 0; i < count; ++i) {
      now = pipeline->nextTickAfter(now);
      TRY_VOID(pipeline->tick(now, PicturePacer::Repeats::everySecond));
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

}  // namespace
}  // namespace quillbeam
