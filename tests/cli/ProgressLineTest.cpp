#include "cli/ProgressLine.h"

#include <gtest/gtest.h>

#include "cli/OutputFile.h"

namespace quillbeam::cli {
namespace {

TEST(ProgressText, neverShowsSixtySeconds) {
  EXPECT_EQ(durationText(0), "0:00.0");
  EXPECT_EQ(durationText(59.94), "0:59.9");
  EXPECT_EQ(durationText(59.96), "1:00.0");
  EXPECT_EQ(durationText(3599.99), "1:00:00");
  EXPECT_EQ(durationText(3723.4), "1:02:03");
  EXPECT_EQ(durationText(-1), "0:00.0");
}

TEST(OutputFile, namesARecordingByItsLocalStart) {
  const Places places{.movies = "/home/ada/Videos"};
  setenv("TZ", "UTC-2", 1);
  tzset();
  const auto path = defaultOutputFile(places, Date(std::chrono::seconds(1'795'384'203)), "m4a");
  EXPECT_EQ(path, "/home/ada/Videos/Recording 2026-11-22 at 23.50.03.m4a");
}

}  // namespace
}  // namespace quillbeam::cli
