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

TEST(ProgressText, scalesSizesAndLevels) {
  EXPECT_EQ(sizeText(0), "0 kB");
  EXPECT_EQ(sizeText(12'345'678), "12.3 MB");
  EXPECT_EQ(sizeText(4'560'000'000), "4.56 GB");
  EXPECT_EQ(levelBar(0), "▯▯▯▯▯▯▯▯");
  EXPECT_EQ(levelBar(0.063), "▮▮▮▮▯▯▯▯");  // −24 dB: half of the bar
  EXPECT_EQ(levelBar(1), "▮▮▮▮▮▮▮▮");
  EXPECT_EQ(levelBar(2), "▮▮▮▮▮▮▮▮");
}

TEST(ProgressText, fitsAnOrdinaryTerminal) {
  const RecordingFigures figures{.fileBytes = 999'000'000, .videoFrames = 250'000, .droppedFrames = 12};
  std::size_t columns = 0;
  for (const char byte : progressText(figures, 12'000)) columns += (byte & 0xC0) != 0x80;
  EXPECT_LT(columns, 80U);
}

TEST(RecordingFigures, readBothIntegerWidthsAndMissingEntries) {
  const auto figures = RecordingFigures::fromValue(
      ValueMap{{"videoFrames", 24}, {"fileBytes", std::int64_t{5'000'000'000}}, {"problem", nullptr}});
  EXPECT_EQ(figures.videoFrames, 24);
  EXPECT_EQ(figures.fileBytes, 5'000'000'000);
  EXPECT_EQ(figures.problem, "");
  EXPECT_EQ(RecordingFigures::fromValue(nullptr).videoFrames, 0);
}

TEST(OutputFile, namesARecordingByItsLocalStart) {
  const Places places{.movies = "/home/ada/Videos"};
  setenv("TZ", "UTC-2", 1);
  tzset();
  const auto path = defaultOutputFile(places, Date(std::chrono::seconds(1'795'384'203)));
  EXPECT_EQ(path, "/home/ada/Videos/Recording 2026-11-22 at 23.50.03.mp4");
}

TEST(OutputFile, isAbsoluteHoweverItWasGiven) {
  EXPECT_EQ(absolutePath("/tmp/a/../b.mp4"), "/tmp/b.mp4");
  EXPECT_TRUE(absolutePath("b.mp4").starts_with('/'));
  EXPECT_TRUE(absolutePath("b.mp4").ends_with("/b.mp4"));
}

}  // namespace
}  // namespace quillbeam::cli
