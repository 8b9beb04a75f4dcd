#include "platform/linux/pulse/HostClockTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

namespace quillbeam {
namespace {

constexpr double origin = 1000.0;  ///< host seconds at which the streams under test begin

/// A device that plays `signal(host seconds since origin)` and delivers it with a crystal of its own and noisy stamps.
struct Device {
  std::function<float(double)> signal;
  int sampleRate = 48'000;
  double crystalError = 0;  ///< relative: positive runs fast
  double stampOffset = 0;   ///< seconds
  double stampNoise = 0;    ///< seconds either way
  int framesPerDelivery = 480;
  double now = 0;  ///< host seconds since origin of the next frame

  void deliver(HostClockTrack& track, double until) {
    std::uniform_real_distribution<double> noise(-1.0, 1.0);
    const double framePeriod = 1.0 / (sampleRate * (1 + crystalError));
    while (now + framesPerDelivery * framePeriod <= until) {
      std::vector<float> samples;
      for (int frame = 0; frame < framesPerDelivery; ++frame) {
        samples.insert(samples.end(), 2, signal(now + frame * framePeriod));
      }
      const double stamp = origin + now + stampOffset + stampNoise * noise(random);
      track.write({samples, sampleRate, std::llround(stamp * 1e9), Continuity::continues});
      now += framesPerDelivery * framePeriod;
    }
  }

  std::mt19937 random{7};
};

/// The left channel read so far; checks that the blocks are contiguous to the sample.
struct Listener {
  explicit Listener(HostClockTrack& heard) : track(heard) {}

  void listen(double until) {
    for (const SampleBuffer& sample : track.readUntil(MediaTime::seconds(origin + until))) {
      const std::int64_t position = static_cast<std::int64_t>(origin * 48'000) + static_cast<std::int64_t>(left.size());
      ASSERT_EQ(sample.presentationTime(), MediaTime(position, 48'000));
      ASSERT_EQ(sample.block()->frames(), 480);
      for (int frame = 0; frame < 480; ++frame) left.push_back(sample.block()->samples[frame * 2]);
    }
  }
  /// Host seconds (since origin) at which the signal first rises above `level` from `since` on.
  double rise(double since, float level) const {
    const auto at = std::find_if(left.begin() + std::lround(since * 48'000), left.end(),
                                 [level](float sample) { return sample > level; });
    return static_cast<double>(at - left.begin()) / 48'000;
  }

  HostClockTrack& track;
  std::vector<float> left;
};

float sine440(double seconds) { return 0.5F * static_cast<float>(std::sin(2 * std::numbers::pi * 440 * seconds)); }

/// Every second a pulse of half a second.
float pulses(double seconds) { return seconds - std::floor(seconds) < 0.5 ? 0.8F : 0.0F; }

MediaTime at(double seconds) { return MediaTime::seconds(origin + seconds); }

/// A click is a bend that the signal itself does not have.
float sharpestBend(const std::vector<float>& signal, std::size_t from) {
  float sharpest = 0;
  for (std::size_t i = from + 2; i < signal.size(); ++i) {
    sharpest = std::max(sharpest, std::abs(signal[i] - 2 * signal[i - 1] + signal[i - 2]));
  }
  return sharpest;
}

TEST(HostClockTrackPlacing, beginsWithSilenceForALateSourceAndCutsAnEarlyOne) {
  for (const double lead : {-0.4, 0.3}) {
    HostClockTrack track(at(0));
    Listener listener(track);
    Device device{.signal = [](double) { return 0.5F; }, .now = lead};
    device.deliver(track, 1.0);
    listener.listen(0.9);
    EXPECT_NEAR(listener.rise(0, 0.25F), std::max(lead, 0.0), 0.003) << lead;
    EXPECT_EQ(listener.left.size(), 43'200u);
  }
}

TEST(HostClockTrackPlacing, bringsEveryRateToTheSameSound) {
  for (const int rate : {8'000, 16'000, 44'100, 48'000}) {
    HostClockTrack track(at(0));
    Listener listener(track);
    Device device{.signal = sine440, .sampleRate = rate, .framesPerDelivery = rate / 100};
    device.deliver(track, 1.0);
    listener.listen(0.9);
    for (std::size_t i = 960; i < 43'000; ++i) {
      ASSERT_NEAR(listener.left[i], sine440(static_cast<double>(i) / 48'000), 5e-3) << rate << " " << i;
    }
  }
}

TEST(HostClockTrackDrift, ofANoisyCrystalMovesNothingByMoreThanMilliseconds) {
  for (const double crystal : {200e-6, -200e-6, 500e-6}) {
    HostClockTrack track(at(0));
    Listener listener(track);
    Device device{.signal = pulses, .crystalError = crystal, .stampNoise = 0.010, .framesPerDelivery = 960};
    for (double time = 1; time <= 240; time += 1) {
      device.deliver(track, time);
      listener.listen(time - 0.2);
    }
    for (double pulse = 10; pulse < 239; pulse += 1) {
      ASSERT_NEAR(listener.rise(pulse - 0.1, 0.4F), pulse, 0.003) << crystal;
    }
  }
}

TEST(HostClockTrackDrift, isCorrectedWithoutAClick) {
  HostClockTrack track(at(0));
  Listener listener(track);
  Device device{.signal = sine440, .crystalError = 200e-6, .stampNoise = 0.010, .framesPerDelivery = 441};
  for (double time = 0.1; time <= 60; time += 0.1) {
    device.deliver(track, time);
    listener.listen(time - 0.2);
  }
  const double own = 0.5 * std::pow(2 * std::numbers::pi * 440 / 48'000, 2);
  EXPECT_LT(sharpestBend(listener.left, 480), own * 1.1);
}

TEST(HostClockTrackDelivery, thatComesTooLateIsLeftOutAndShiftsNothing) {
  HostClockTrack track(at(0));
  Listener listener(track);
  Device device{.signal = pulses};
  device.deliver(track, 3.0);
  listener.listen(3.7);  // 700 ms of what follows are late
  device.deliver(track, 6.0);
  listener.listen(5.9);
  EXPECT_EQ(*std::max_element(listener.left.begin() + 48'000 * 31 / 10, listener.left.begin() + 48'000 * 36 / 10),
            0.0F);
  EXPECT_NEAR(listener.rise(4.0 - 0.1, 0.4F), 4.0, 0.003);
  EXPECT_NEAR(listener.rise(5.0 - 0.1, 0.4F), 5.0, 0.003);
}

TEST(HostClockTrackJump, isFollowedAtOnceAfterTheSourceHadPaused) {
  HostClockTrack track(at(0));
  Listener listener(track);
  Device device{.signal = pulses};
  device.deliver(track, 2.0);
  listener.listen(4.0);
  device.now = 4.25;  // suspended meanwhile: the frame count does not know
  device.deliver(track, 8.0);
  listener.listen(7.9);
  EXPECT_NEAR(listener.rise(4.0, 0.4F), 4.25, 0.003);
  EXPECT_NEAR(listener.rise(5.9, 0.4F), 6.0, 0.003);
}

TEST(HostClockTrackJump, isFollowedInEitherDirectionOnceItsStampsInsist) {
  for (const double jump : {0.120, -0.120}) {
    HostClockTrack track(at(0));
    Listener listener(track);
    Device device{.signal = pulses, .stampNoise = 0.005};
    device.deliver(track, 2.0);
    device.now += jump;
    for (double time = 2.2; time <= 10; time += 0.1) {
      device.deliver(track, time);
      listener.listen(time - 0.3);
    }
    EXPECT_NEAR(listener.rise(4.8, 0.4F), 5.0, 0.004) << jump;
    EXPECT_NEAR(listener.rise(8.8, 0.4F), 9.0, 0.002) << jump;
  }
}

TEST(HostClockTrackJump, isNotSeenInAStampThatIsFarOffByItself) {
  HostClockTrack track(at(0));
  Listener listener(track);
  Device device{.signal = sine440};
  device.deliver(track, 1.0);
  device.stampOffset = 0.2;
  device.deliver(track, 1.1);
  device.stampOffset = 0;
  device.deliver(track, 2.95);
  listener.listen(2.9);
  for (std::size_t i = 48'000 * 2; i < listener.left.size(); ++i) {
    ASSERT_NEAR(listener.left[i], sine440(static_cast<double>(i) / 48'000), 0.02) << i;
  }
}

}  // namespace
}  // namespace quillbeam
