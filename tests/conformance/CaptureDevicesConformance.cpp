#include <gtest/gtest.h>

#include <vector>

#include "platform/linux/pulse/PulseCaptureDevices.h"
#include "platform/sim/SimCaptureDevices.h"
#include "support/PrivateSoundServer.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

class CaptureDevicesConformance : public ConformanceTest {
 protected:
  void SetUp() override {
    if (isSim()) {
      devices_ = std::make_unique<SimCaptureDevices>(dispatch());
      return;
    }
    if (!PrivateSoundServer::isInstalled()) GTEST_SKIP() << "NO SOUND WAS TESTED: install pulseaudio and its tools";
    server_.emplace();
    context_.emplace(server_->address());
    devices_ = std::make_unique<PulseCaptureDevices>(*context_);
  }

  CaptureDevices& devices() { return *devices_; }
  std::unique_ptr<CaptureDeviceInput> input() {
    return devices().makeInput(devices().defaultAudioDevice().value()).value();
  }

 private:
  std::optional<PrivateSoundServer> server_;
  std::optional<PulseContext> context_;
  std::unique_ptr<CaptureDevices> devices_;
};
QB_ON_BOTH_WORLDS(CaptureDevicesConformance);

TEST_P(CaptureDevicesConformance, deliversContiguousBlocksOfTheDefaultDeviceOnTheGivenQueue) {
  EXPECT_FALSE(devices().defaultAudioDevice().value().name.empty());
  auto queue = dispatch().makeSerialQueue("test.microphone");
  auto session = devices().makeSession();
  ASSERT_TRUE(session->addInput(input()));
  EXPECT_FALSE(session->addInput(input()));
  std::vector<SampleBuffer> samples;
  std::atomic<std::size_t> count = 0;
  const auto take = [&](const SampleBuffer& sample) {
    EXPECT_TRUE(queue->isCurrent());
    samples.push_back(sample);
    ++count;
  };
  ASSERT_TRUE(session->addAudioDataOutput(take, *queue));
  EXPECT_FALSE(session->addAudioDataOutput(take, *queue));
  const MediaTime begin = dispatch().hostTime();
  session->startRunning();
  ASSERT_TRUE(world().waitUntil([&] { return count >= 50; }));
  session->stopRunning();
  const std::size_t heard = samples.size();
  world().letPass(std::chrono::milliseconds(50));
  EXPECT_EQ(samples.size(), heard) << "delivered after the stop";

  EXPECT_LT(std::abs((samples.front().presentationTime() - begin).seconds()), 0.1);
  for (std::size_t at = 0; at < heard; ++at) {
    EXPECT_EQ(samples[at].block()->sampleRate, 48'000);
    EXPECT_EQ(samples[at].block()->channels, 2);
    EXPECT_LE(samples[at].block()->frames(), 480);
    if (at == 0) continue;
    const MediaTime end = samples[at - 1].presentationTime() + samples[at - 1].duration();
    EXPECT_EQ(samples[at].presentationTime(), end);
  }
}

TEST_P(CaptureDevicesConformance, stopsWhenTheSessionGoesEvenFromItsOwnCallback) {
  auto session = devices().makeSession();
  ASSERT_TRUE(session->addInput(input()));
  int calls = 0;
  ASSERT_TRUE(session->addAudioDataOutput(
      [&](const SampleBuffer&) {
        ++calls;
        session->stopRunning();
      },
      dispatch().main()));
  session->startRunning();
  ASSERT_TRUE(world().waitUntil([&] { return calls > 0; }));
  world().letPass(std::chrono::milliseconds(50));
  EXPECT_EQ(calls, 1);
  session.reset();
}

}  // namespace
}  // namespace quillbeam
