#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/pulse/HostClock.h"
#include "platform/linux/pulse/PulseCaptureDevices.h"
#include "platform/linux/pulse/PulseSoundSources.h"
#include "platform_linux_pulse/BeepPlayer.h"
#include "support/PrivateSoundServer.h"

namespace quillbeam {
namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t millisecond = 1'000'000;

void sleepFor(std::int64_t nanoseconds) { std::this_thread::sleep_for(std::chrono::nanoseconds(nanoseconds)); }

bool comesTrue(const std::function<bool()>& condition) {
  for (int attempt = 0; attempt < 500; ++attempt, sleepFor(10 * millisecond)) {
    if (condition()) return true;
  }
  return false;
}

/// Reads a source as a capture thread does and keeps what it heard; checks that the blocks leave no gap.
class Recording {
 public:
  explicit Recording(std::unique_ptr<SoundSource> source)
      : source_(std::move(source)), from_(MediaTime::nanoseconds(hostClockNow()).rescaled(48'000)) {
    EXPECT_TRUE(source_->start(from_));
  }

  void runUntil(std::int64_t hostTime) {
    while (hostClockNow() < hostTime) {
      for (const SampleBuffer& sample : source_->readUntil(MediaTime::nanoseconds(hostClockNow() - second / 6))) {
        const auto heard = static_cast<std::int64_t>(left_.size());
        EXPECT_EQ(sample.presentationTime(), MediaTime(from_.value() + heard, 48'000));
        for (int frame = 0; frame < sample.block()->frames(); ++frame) {
          left_.push_back(sample.block()->samples[static_cast<std::size_t>(2 * frame)]);
        }
      }
      sleepFor(10 * millisecond);
    }
  }
  void runFor(std::int64_t duration) { runUntil(hostClockNow() + duration); }
  bool runUntilDelivering() {
    return comesTrue([this] {
      runFor(10 * millisecond);
      return source_->isDelivering();
    });
  }

  /// How late (milliseconds) a beep lies in the recording that sounded at `hostTime`; nothing when it is not there
  /// within 200 ms.
  std::optional<double> lateness(std::int64_t hostTime) const {
    const double due = (static_cast<double>(hostTime) * 1e-9 - from_.seconds()) * 48'000;
    const auto first = static_cast<std::size_t>(std::max(due - 9'600, 0.0));
    for (std::size_t at = first; at < first + 19'200 && at < left_.size(); ++at) {
      if (std::abs(left_[at]) > 0.15F) return (static_cast<double>(at) - due) / 48;
    }
    return std::nullopt;
  }
  SoundSource& source() { return *source_; }

 private:
  std::unique_ptr<SoundSource> source_;
  MediaTime from_;
  std::vector<float> left_;
};

class PulseSound : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PrivateSoundServer::isInstalled()) GTEST_SKIP() << "NO SOUND WAS TESTED: install pulseaudio and its tools";
    server_.emplace();
    context_.emplace(server_->address());
    ASSERT_TRUE(context_->answers(std::chrono::seconds(5)));
  }

  PrivateSoundServer& server() { return *server_; }
  PulseContext& context() { return *context_; }
  std::unique_ptr<SoundSource> systemAudio() { return PulseSoundSources(context()).openSystemAudio().value(); }
  std::unique_ptr<SoundSource> microphone() { return PulseSoundSources(context()).openMicrophone().value(); }

  /// Plays a beep half a second from now and answers how late it is recorded.
  std::optional<double> beepThrough(Recording& recording, const std::string& sink) {
    BeepPlayer player(server().address(), sink);
    const std::int64_t due = hostClockNow() + 600 * millisecond;
    player.beepAt(due);
    recording.runUntil(due + 400 * millisecond);
    return recording.lateness(due);
  }

 private:
  std::optional<PrivateSoundServer> server_;
  std::optional<PulseContext> context_;
};

#define EXPECT_ON_TIME(lateness)          \
  do {                                    \
    const auto measured = (lateness);     \
    ASSERT_TRUE(measured) << "not heard"; \
    EXPECT_NEAR(*measured, 0, 10);        \
  } while (false)

TEST_F(PulseSound, isRecordedAtTheTimeAtWhichItWasPlayed) {
  for (const std::string sink : {"speakers", "voice"}) {
    BeepPlayer player(server().address(), sink);
    Recording recording(sink == "speakers" ? systemAudio() : microphone());
    std::vector<std::int64_t> beeps;
    for (int beep = 0; beep < 6; ++beep) {
      beeps.push_back(hostClockNow() + 600 * millisecond + beep * 417 * millisecond);
      player.beepAt(beeps.back());
    }
    recording.runUntil(beeps.back() + 400 * millisecond);
    for (const std::int64_t beep : beeps) EXPECT_ON_TIME(recording.lateness(beep));
  }
}

TEST_F(PulseSound, comesBackOnTimeAfterTheServerRestarted) {
  Recording recording(systemAudio());
  EXPECT_ON_TIME(beepThrough(recording, "speakers"));
  server().stop();
  recording.runFor(800 * millisecond);
  EXPECT_FALSE(recording.source().isDelivering());
  server().start();
  ASSERT_TRUE(recording.runUntilDelivering());
  EXPECT_ON_TIME(beepThrough(recording, "speakers"));
}

TEST_F(PulseSound, isSilentWhileTheMicrophoneIsGoneAndReturnsWithAnother) {
  PulseCaptureDevices devices(context());
  EXPECT_EQ(devices.defaultAudioDevice()->name, "Microphone");
  Recording recording(microphone());
  ASSERT_TRUE(recording.runUntilDelivering());
  ASSERT_TRUE(server().control("unload-module module-remap-source"));
  ASSERT_TRUE(comesTrue([&] { return !devices.defaultAudioDevice(); }));
  EXPECT_EQ(beepThrough(recording, "voice"), std::nullopt);
  EXPECT_FALSE(recording.source().isDelivering());
  ASSERT_TRUE(server().control("load-module module-remap-source source_name=headset master=voice.monitor rate=16000"));
  ASSERT_TRUE(server().control("set-default-source headset"));
  ASSERT_TRUE(recording.runUntilDelivering());
  EXPECT_EQ(devices.defaultAudioDevice()->uniqueId, "headset");
  EXPECT_ON_TIME(beepThrough(recording, "voice"));
}

}  // namespace
}  // namespace quillbeam
