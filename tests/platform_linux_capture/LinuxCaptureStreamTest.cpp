#include "platform/linux/capture/LinuxCaptureStream.h"

#include <gtest/gtest.h>

#include <thread>

#include "base/TaskScope.h"
#include "platform/linux/capture/LinuxScreenCapture.h"
#include "support/FakeSounds.h"
#include "support/PrivateDisplay.h"
#include "support/RecordedSamples.h"
#include "support/Worlds.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

class RecordingDelegate final : public StreamDelegate {
 public:
  void streamDidStopWithError(const Error& error) override { errors.push_back(error); }
  std::vector<Error> errors;
};

/// Paints another picture thirty times a second.
class MovingScreen {
 public:
  explicit MovingScreen(PrivateDisplay& display)
      : thread_([&display](std::stop_token stop) {
          for (int i = 0; !stop.stop_requested() && display.isRunning(); ++i) {
            display.paint(i % 50 * 10, 100, 100, 50, {static_cast<std::uint8_t>(i * 7), 90, 10});
            std::this_thread::sleep_for(33ms);
          }
        }) {}

 private:
  std::jthread thread_;
};

/// A recording of a private display on real queues; the test's code is the main queue.
class LinuxCaptureStreamTest : public testing::Test {
 protected:
  void record(PrivateDisplay& display, StreamConfiguration configuration) {
    capture.emplace(world.dispatch(), sounds, log, display.name());
    const auto content = run(capture->shareableContent());
    ASSERT_TRUE(content);
    auto made = capture->makeStream(content->displays.front(), configuration, delegate);
    ASSERT_TRUE(made);
    stream = *std::move(made);
    ASSERT_TRUE(stream->addStreamOutput(output, OutputType::screen, *pictureQueue));
    if (configuration.capturesAudio) {
      ASSERT_TRUE(stream->addStreamOutput(output, OutputType::audio, *soundQueue));
    }
    const auto started = run(stream->startCapture());
    ASSERT_TRUE(started) << started.error().fullDescription();
  }

  template <class T>
  Result<T> run(Task<T> task) {
    std::optional<Result<T>> answer;
    TaskScope scope(world.dispatch().main());
    scope.start(std::move(task), [&](Result<T> result) { answer.emplace(std::move(result)); });
    EXPECT_TRUE(world.waitUntil([&] { return answer.has_value(); }));
    return *std::move(answer);
  }

  std::size_t pictures() const { return samples.count(OutputType::screen); }

  LinuxWorld world;
  std::unique_ptr<DispatchQueue> pictureQueue = world.dispatch().makeSerialQueue("pictures");
  std::unique_ptr<DispatchQueue> soundQueue = world.dispatch().makeSerialQueue("sound");
  FakeSounds sounds;
  RecordingLog log;
  RecordedSamples samples;
  RecordingOutput output{samples};
  RecordingDelegate delegate;
  std::optional<LinuxScreenCapture> capture;
  std::unique_ptr<CaptureStream> stream;
};

StreamConfiguration configured(int width, int height) { return {.width = width, .height = height}; }

TEST_F(LinuxCaptureStreamTest, makesTwentyFourPicturesASecondOfAScreenThatChangesThirtyTimes) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  MovingScreen moving(display);
  record(display, configured(640, 360));
  world.letPass(3s);
  ASSERT_TRUE(run(stream->stopCapture()));
  const auto statistics = stream->statistics();
  const auto taken = samples.of(OutputType::screen);
  const auto seconds = (taken.back().presentationTime() - taken.front().presentationTime()).seconds();
  EXPECT_GE(static_cast<double>(taken.size() + static_cast<std::size_t>(statistics.framesDropped)), seconds * 23)
      << "each tick has a picture or a reason";
  EXPECT_EQ(statistics.framesDelivered, static_cast<std::int64_t>(taken.size()));
}

TEST_F(LinuxCaptureStreamTest, showsAStillScreenOnceASecondAndThenWhatChanges) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  record(display, configured(640, 360));
  ASSERT_TRUE(world.waitUntil([&] { return pictures() >= 1; }));
  world.letPass(500ms);
  const auto settled = pictures();
  world.letPass(3s);
  const auto repeats = pictures() - settled;
  EXPECT_GE(repeats, 2u);
  EXPECT_LE(repeats, 4u);

  display.paintAll({255, 255, 255});
  const auto isWhite = [&] {
    const auto picture = samples.of(OutputType::screen).back().picture();
    return picture->y().data[0] > 200;
  };
  EXPECT_TRUE(world.waitUntil(isWhite));
  ASSERT_TRUE(run(stream->stopCapture()));
}

TEST_F(LinuxCaptureStreamTest, followsAChangeOfMode) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  record(display, configured(640, 360));
  ASSERT_TRUE(display.changeMode(320, 320));
  const auto isFramed = [&] {
    display.paintAll({255, 255, 255});
    const auto taken = samples.of(OutputType::screen);
    if (taken.empty()) return false;
    const auto luma = taken.back().picture()->y();
    return luma.data[0] == 16 && luma.data[luma.stride * 180 + 320] > 200;
  };
  EXPECT_TRUE(world.waitUntil(isFramed));
  EXPECT_TRUE(run(stream->stopCapture()));
  EXPECT_TRUE(delegate.errors.empty());
}

TEST_F(LinuxCaptureStreamTest, deliversEverythingBeforeItReportsADeadServer) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  auto configuration = configured(640, 360);
  configuration.capturesAudio = true;
  record(display, configuration);
  ASSERT_TRUE(world.waitUntil([&] { return samples.count(OutputType::audio) > 20; }));
  display.kill();
  ASSERT_TRUE(world.waitUntil([&] { return !delegate.errors.empty(); }));
  const auto delivered = samples.all().size();
  EXPECT_TRUE(delegate.errors.front().is(ScreenCaptureError::connectionLost));
  const auto sound = samples.of(OutputType::audio).back();
  const auto lastPicture = samples.of(OutputType::screen).back();
  EXPECT_LT(lastPicture.presentationTime() - sound.presentationTime(), MediaTime(1, 20)) << "both end together";
  world.letPass(200ms);
  EXPECT_EQ(samples.all().size(), delivered) << "nothing follows";
  EXPECT_EQ(delegate.errors.size(), 1u);
  const auto stopped = run(stream->stopCapture());
  ASSERT_FALSE(stopped);
  EXPECT_TRUE(stopped.error().is(ScreenCaptureError::notRunning));
}

TEST_F(LinuxCaptureStreamTest, endsWhenItsDisplayIsSwitchedOffForGood) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  record(display, configured(640, 360));
  ASSERT_TRUE(display.switchOff());
  ASSERT_TRUE(world.waitUntil([&] { return !delegate.errors.empty(); }));
  EXPECT_TRUE(delegate.errors.front().is(ScreenCaptureError::displayGone));
}

TEST_F(LinuxCaptureStreamTest, capturesAgainAfterItWasStopped) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  for (int round = 0; round < 3; ++round) {
    if (round == 0) {
      record(display, configured(640, 360));
    } else {
      ASSERT_TRUE(run(stream->startCapture()));
    }
    const auto before = pictures();
    ASSERT_TRUE(world.waitUntil([&] { return pictures() > before + 2; }));
    ASSERT_TRUE(run(stream->stopCapture()));
  }
}

TEST_F(LinuxCaptureStreamTest, reportsWhatCannotBeCaptured) {
  capture.emplace(world.dispatch(), sounds, log, ":4711");
  const auto content = run(capture->shareableContent());
  ASSERT_FALSE(content);
  EXPECT_TRUE(content.error().is(ScreenCaptureError::noDisplayServer));
  EXPECT_FALSE(capture->makeStream({}, configured(0, 360), delegate));

  stream = *capture->makeStream({}, configured(640, 360), delegate);
  const auto started = run(stream->startCapture());
  ASSERT_FALSE(started);
  EXPECT_TRUE(started.error().is(ScreenCaptureError::noDisplayServer));
}

}  // namespace
}  // namespace quillbeam
