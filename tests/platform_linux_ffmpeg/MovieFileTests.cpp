#include "platform/linux/ffmpeg/MovieFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "Programs.h"
#include "Recording.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

using namespace test;

std::string contentOf(const Path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void store(const Path& path, std::string_view content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string bigEndian(std::uint64_t value, int width) {
  std::string bytes;
  for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

std::uint64_t number(const std::string& bytes, std::size_t offset, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = value << 8 | static_cast<std::uint8_t>(bytes[offset + i]);
  return value;
}

std::size_t pictureCount(const Path& path) {
  return numbersOf(probed(path, "frame=pts_time", "-select_streams v")).size();
}

double durationOf(const Path& path) {
  const auto numbers = numbersOf(probed(path, "format=duration"));
  return numbers.empty() ? 0 : numbers[0];
}

constexpr std::size_t roomBegin = 40;  ///< the ftyp box ends here

class MovieFiles : public testing::Test {
 protected:
  Path path(const std::string& name) { return directory_.path() + "/" + name; }

  /// What a process leaves behind that dies after `frames` pictures.
  std::string unfinished(int frames, MovieFile::Limits limits) {
    const Path file = path("unfinished.mp4");
    {
      Recording recording(file, screenVideo, limits);
      recording.record(frames);
      const double target = frames / 24.0 - 1.2;
      // Everything that is due comes out; what belongs to the last second stays in memory.
      for (int wait = 0; wait < 1000 && durationOf(file) < target; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    }
    std::string content = contentOf(file);
    std::filesystem::remove(file);
    return content;
  }

  Result<RepairReport> repair(const Path& file) { return FfmpegMediaWriters().repair(file); }

  TestDirectory directory_;
};

constexpr MovieFile::Limits inRoom{.indexRoom = 64 * 1024, .largestCopy = 0};
constexpr MovieFile::Limits noRoom{.indexRoom = 64, .largestCopy = 0};

TEST_F(MovieFiles, repairTurnsEveryTruncationIntoAnOrdinaryMovie) {
  const std::string content = unfinished(120, inRoom);
  const std::size_t firstFragmentEnd = content.find("moof", content.find("moof") + 4) - 4;
  std::mt19937 random(20);
  std::vector<std::size_t> lengths{content.size(), content.size() - 1};
  for (int i = 0; i < 8; ++i) lengths.push_back(roomBegin + random() % (content.size() - roomBegin));
  double longest = 0;
  for (const std::size_t length : lengths) {
    SCOPED_TRACE(length);
    const Path file = path("torn.mp4");
    store(file, content.substr(0, length));
    const auto report = repair(file);
    if (!report) {
      EXPECT_TRUE(report.error().is(AssetWriterError::notRecoverable));
      EXPECT_EQ(contentOf(file), content.substr(0, length)) << "a file that cannot be repaired stays as it is";
      EXPECT_LT(length, firstFragmentEnd);
      continue;
    }
    EXPECT_GE(length, firstFragmentEnd);
    longest = std::max(longest, report->duration.seconds());
    EXPECT_FALSE(report->wasComplete);
    EXPECT_EQ(decodingErrors(file), "");
    EXPECT_NEAR(durationOf(file), report->duration.seconds(), 0.001);
    EXPECT_GE(pictureCount(file), 20u);
    const auto again = repair(file);
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->wasComplete);
    EXPECT_EQ(again->duration, report->duration);
  }
  EXPECT_GE(longest, 3.5);
}

TEST_F(MovieFiles, aTornTailOfZerosIsCutAndReported) {
  const std::string content = unfinished(72, inRoom);
  const Path file = path("torn.mp4");
  store(file, content + std::string(5000, '\0'));
  const auto report = repair(file);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->bytesDiscarded, 5000);
  EXPECT_EQ(decodingErrors(file), "");
}

/// Rebuilds what is on disk when finishing is interrupted before each of its steps, with what an unordered disk may
/// have written of the step before.
TEST_F(MovieFiles, finishingMayBeInterruptedAnywhere) {
  const Path file = path("movie.mp4");
  const auto check = [&](const std::string& content, bool wasComplete) {
    store(file, content);
    EXPECT_EQ(decodingErrors(file), "") << "before the repair";
    const auto report = repair(file);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->wasComplete, wasComplete);
    EXPECT_EQ(report->bytesDiscarded, 0);
    EXPECT_NEAR(report->duration.seconds(), 3, 0.001);
    EXPECT_EQ(decodingErrors(file), "");
    EXPECT_EQ(pictureCount(file), 72u);
    EXPECT_TRUE(repair(file)->wasComplete);
  };
  const auto finished = [&](MovieFile::Limits limits) {
    std::filesystem::remove(file);
    Recording recording(file, screenVideo, limits);
    recording.record(72);
    EXPECT_TRUE(recording.finish());
    return contentOf(file);
  };

  std::string room = finished(inRoom);
  check(room, true);
  const std::size_t movieSize = number(room, roomBegin, 4);
  room.replace(roomBegin, 8, bigEndian(inRoom.indexRoom, 4) + "free");
  check(room, false);
  check(std::string(room).replace(roomBegin + 8, movieSize / 2, movieSize / 2, '\0'), false);

  std::string behind = finished(noRoom);
  check(behind, true);
  const std::size_t index = roomBegin + number(behind, roomBegin + 8, 8);
  ASSERT_EQ(behind.substr(index + 4, 4), "moov");
  behind.replace(roomBegin, 8, bigEndian(noRoom.indexRoom, 4) + "free");
  check(behind, false);
  behind.replace(index + 4, 4, "free");
  check(behind, false);
}

TEST_F(MovieFiles, repairSurvivesBrokenHeaders) {
  const std::string content = unfinished(72, inRoom);
  std::mt19937 random(7);
  const std::size_t movie = roomBegin + inRoom.indexRoom;
  for (int round = 0; round < 150; ++round) {
    std::string broken = content.substr(0, movie) + content.substr(movie, 60'000);
    // Most of the damage goes where the numbers are.
    const std::size_t span = round % 2 == 0 ? 4000 : broken.size() - movie;
    for (int i = 0; i < 1 + round % 4; ++i) broken[movie + random() % span] = static_cast<char>(random());
    store(path("broken.mp4"), broken);
    const auto report = repair(path("broken.mp4"));
    EXPECT_TRUE(report || !report.error().description().empty());
  }
}

}  // namespace
}  // namespace quillbeam
