#include "platform/linux/capture/LinuxCaptureStream.h"

#include <gtest/gtest.h>

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

TEST_F(LinuxCaptureStreamTest, deliversSoundWhereThereIsNoDisplayWithPicturesThatLastAsLong) {
  LinuxScreenCapture displayless(world.dispatch(), sounds, log, ":4711");
  EXPECT_FALSE(run(displayless.shareableContent()));
  const auto content = run(displayless.shareableContentForSound());
  ASSERT_TRUE(content);
  auto configuration = configured(2, 2);
  configuration.minimumFrameInterval = MediaTime(1, 2'147'483'647);
  configuration.capturesAudio = true;
  stream = displayless.makeStream(content->displays.front(), configuration, delegate).value();
  ASSERT_TRUE(stream->addStreamOutput(output, OutputType::screen, *pictureQueue));
  ASSERT_TRUE(stream->addStreamOutput(output, OutputType::audio, *soundQueue));
  ASSERT_TRUE(run(stream->startCapture()));
  world.letPass(2500ms);
  ASSERT_TRUE(run(stream->stopCapture()));
  const auto blocks = samples.of(OutputType::audio);
  const auto pictures = samples.of(OutputType::screen);
  EXPECT_TRUE(areContiguous(blocks));
  EXPECT_LE(pictures.size(), 6u) << "a picture a second is enough, and the last one";
  const auto soundEnd = blocks.back().presentationTime() + blocks.back().duration();
  EXPECT_LT(pictures.back().presentationTime() - soundEnd, MediaTime(1, 50));
  EXPECT_LT(pictures.front().presentationTime() - blocks.front().presentationTime(), MediaTime(1, 12));
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

}  // namespace
}  // namespace quillbeam
