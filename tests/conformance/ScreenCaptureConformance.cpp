#include <optional>

#include "base/TaskScope.h"
#include "platform/linux/capture/LinuxScreenCapture.h"
#include "platform/sim/SimScreenCapture.h"
#include "support/FakeSounds.h"
#include "support/PrivateDisplay.h"
#include "support/RecordedSamples.h"
#include "support/Worlds.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

constexpr OutputType everyType[] = {OutputType::screen, OutputType::audio, OutputType::microphone};

class IgnoringDelegate final : public StreamDelegate {
 public:
  void streamDidStopWithError(const Error&) override { ADD_FAILURE() << "nothing went wrong"; }
};

/// A still screen with both sounds; on linux a private X server, its sound by a fake.
class ScreenCaptureConformance : public ConformanceTest {
 protected:
  void SetUp() override {
    if (isSim()) {
      auto simulated = std::make_unique<SimScreenCapture>(dispatch());
      simulated->script.stream.screen = SimScreen::still;
      simulated->script.displays = {{1, 640, 360}};
      capture_ = std::move(simulated);
    } else {
      display_.emplace(640, 360);
      QB_NEEDS_DISPLAY(*display_);
      capture_ = std::make_unique<LinuxScreenCapture>(dispatch(), sounds_, log_, display_->name());
    }
  }

  template <class T>
  Result<T> run(Task<T> task) {
    std::optional<Result<T>> answer;
    TaskScope scope(dispatch().main());
    scope.start(std::move(task), [&](Result<T> result) { answer.emplace(std::move(result)); });
    EXPECT_TRUE(world().waitUntil([&] { return answer.has_value(); }));
    return *std::move(answer);
  }

  std::unique_ptr<CaptureStream> makeStream() {
    const auto content = run(capture_->shareableContent());
    EXPECT_TRUE(content);
    const StreamConfiguration configuration{
        .width = 640, .height = 360, .capturesAudio = true, .captureMicrophone = true};
    auto stream = capture_->makeStream(content->displays.front(), configuration, delegate_);
    EXPECT_TRUE(stream);
    return *std::move(stream);
  }
  std::unique_ptr<CaptureStream> makeStreamWithOutputs() {
    auto stream = makeStream();
    for (const auto type : everyType) {
      EXPECT_TRUE(stream->addStreamOutput(output, type, *queues[static_cast<std::size_t>(type)]));
    }
    return stream;
  }
  bool waitForPictures(std::size_t count) {
    return world().waitUntil([&] { return samples.count(OutputType::screen) >= count; });
  }

  RecordedSamples samples;
  RecordingOutput output{samples};
  std::unique_ptr<DispatchQueue> queues[3] = {dispatch().makeSerialQueue("pictures"),
                                              dispatch().makeSerialQueue("audio"),
                                              dispatch().makeSerialQueue("microphone")};

 private:
  IgnoringDelegate delegate_;
  FakeSounds sounds_;
  RecordingLog log_;
  std::optional<PrivateDisplay> display_;

 protected:
  std::unique_ptr<ScreenCapture> capture_;
};
QB_ON_BOTH_WORLDS(ScreenCaptureConformance);

TEST_P(ScreenCaptureConformance, listsTheDisplay) {
  const auto content = run(capture_->shareableContent());
  ASSERT_TRUE(content);
  ASSERT_EQ(content->displays.size(), 1u);
  EXPECT_EQ(content->displays.front().width, 640);
  EXPECT_EQ(content->displays.front().height, 360);
}

TEST_P(ScreenCaptureConformance, deliversContiguousSoundBetweenPicturesOfTheConfiguredSize) {
  const auto stream = makeStreamWithOutputs();
  ASSERT_TRUE(run(stream->startCapture()));
  ASSERT_TRUE(waitForPictures(3));
  const auto stopTime = dispatch().hostTime();
  ASSERT_TRUE(run(stream->stopCapture()));

  for (const auto type : {OutputType::audio, OutputType::microphone}) {
    const auto blocks = samples.of(type);
    ASSERT_GE(blocks.size(), 50u);
    EXPECT_TRUE(areContiguous(blocks));
    for (const auto& block : blocks) {
      EXPECT_LE(block.duration(), MediaTime(1, 100));
      EXPECT_EQ(block.block()->channels, 2);
      EXPECT_FALSE(block.frameStatus());
    }
    const auto end = blocks.back().presentationTime() + blocks.back().duration();
    EXPECT_LE(stopTime - end, MediaTime(10, 1000)) << "sound up to the stop";
  }
  const auto pictures = samples.of(OutputType::screen);
  for (const auto& picture : pictures) {
    EXPECT_EQ(picture.frameStatus(), FrameStatus::complete);
    EXPECT_EQ(picture.duration(), MediaTime(1, 24));
    EXPECT_FALSE(picture.timing().decodeTime.isValid());
    EXPECT_EQ(picture.picture()->width(), 640);
    EXPECT_EQ(picture.picture()->height(), 360);
  }
  EXPECT_GE(pictures.back().presentationTime(), stopTime);
  EXPECT_LE(pictures.back().presentationTime() - stopTime, MediaTime(1, 10)) << "a last picture with the stop time";
}

TEST_P(ScreenCaptureConformance, repeatsAStillScreenAtFullRateUntilAPictureIsTakenAndThenEverySecond) {
  output.answer = SampleDisposition::ignored;
  const auto stream = makeStreamWithOutputs();
  ASSERT_TRUE(run(stream->startCapture()));
  ASSERT_TRUE(waitForPictures(12));
  auto pictures = samples.of(OutputType::screen);
  EXPECT_LT(pictures[11].presentationTime() - pictures[0].presentationTime(), MediaTime(3, 1));

  for (auto& queue : queues) queue->sync([&] { output.answer = SampleDisposition::taken; });
  world().letPass(500ms);
  const auto settled = samples.count(OutputType::screen);
  ASSERT_TRUE(waitForPictures(settled + 3));
  pictures = samples.of(OutputType::screen);
  const auto third = pictures[settled + 2].presentationTime();
  EXPECT_GE(third - pictures[settled].presentationTime(), MediaTime(2, 1)) << "two seconds for two repeats";
  ASSERT_TRUE(run(stream->stopCapture()));
}

TEST_P(ScreenCaptureConformance, hasRunEveryOutputWhenStopReturnsAndIsNotRunningThen) {
  const auto stream = makeStreamWithOutputs();
  const auto early = run(stream->stopCapture());
  ASSERT_FALSE(early);
  EXPECT_TRUE(early.error().is(ScreenCaptureError::notRunning));

  ASSERT_TRUE(run(stream->startCapture()));
  ASSERT_TRUE(waitForPictures(2));
  ASSERT_TRUE(run(stream->stopCapture()));
  const auto delivered = samples.all().size();
  EXPECT_EQ(stream->statistics().framesDelivered, static_cast<std::int64_t>(samples.count(OutputType::screen)));
  world().letPass(300ms);
  EXPECT_EQ(samples.all().size(), delivered);
  const auto again = run(stream->stopCapture());
  ASSERT_FALSE(again);
  EXPECT_TRUE(again.error().is(ScreenCaptureError::notRunning));
}

TEST_P(ScreenCaptureConformance, stopsOnceWhenItIsToldTwice) {
  const auto stream = makeStreamWithOutputs();
  ASSERT_TRUE(run(stream->startCapture()));
  std::vector<Result<void>> answers;
  TaskScope scope(dispatch().main());
  for (int i = 0; i < 2; ++i)
    scope.start(stream->stopCapture(), [&](Result<void> result) { answers.push_back(result); });
  ASSERT_TRUE(world().waitUntil([&] { return answers.size() == 2; }));
  ASSERT_FALSE(answers[0]) << "the second is refused at once";
  EXPECT_TRUE(answers[0].error().is(ScreenCaptureError::notRunning));
  EXPECT_TRUE(answers[1]);
}

TEST_P(ScreenCaptureConformance, callsNobodyOnceItIsDestroyed) {
  auto stream = makeStreamWithOutputs();
  ASSERT_TRUE(run(stream->startCapture()));
  ASSERT_TRUE(waitForPictures(2));
  stream.reset();
  const auto delivered = samples.all().size();
  world().letPass(300ms);
  EXPECT_EQ(samples.all().size(), delivered);
}

}  // namespace
}  // namespace quillbeam
