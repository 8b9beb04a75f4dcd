#include "platform/linux/pulse/SourceClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace quillbeam {
namespace {

/// Follows a crystal that is off by `crystal` for an hour of 10 ms deliveries whose stamps scatter by ±10 ms, and
/// answers the largest error (seconds) once the first ten seconds have passed.
double worstErrorOverAnHour(double crystal, double wanderPerHour) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> noise(-0.010, 0.010);
  SourceClock clock(48'000, 0);
  double host = 0;
  double worst = 0;
  for (std::int64_t frame = 0; frame < 3600LL * 48'000; frame += 480) {
    clock.learn(frame, std::llround((host + noise(random)) * 1e9));
    if (host > 10) worst = std::max(worst, std::abs(clock.secondsAt(static_cast<double>(frame)) - host));
    host += 0.010 * (1 + crystal + wanderPerHour * host / 3600);
  }
  return worst;
}

TEST(SourceClock, followsAnyCrystalForAnHourToWithinAMillisecondAndAHalf) {
  for (const double crystal : {0.0, 200e-6, -200e-6, 500e-6}) EXPECT_LT(worstErrorOverAnHour(crystal, 0), 0.0015);
  EXPECT_LT(worstErrorOverAnHour(100e-6, 50e-6), 0.0015);
}

TEST(SourceClock, trustsItsFirstStampsAndAveragesTheLaterOnes) {
  SourceClock clock(48'000, 5'000'000'000);
  EXPECT_EQ(clock.secondsAt(0), 0);
  for (int second = 0; second < 60; ++second) clock.learn(second * 48'000, 5'000'000'000 + second * 1'000'000'000LL);
  clock.learn(60 * 48'000, 5'000'000'000 + 60'000'000'000LL + 50'000'000);
  EXPECT_NEAR(clock.secondsAt(60.0 * 48'000), 60, 0.020);
}

}  // namespace
}  // namespace quillbeam
