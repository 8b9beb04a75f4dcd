#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <thread>

#include "Programs.h"
#include "Recording.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

using namespace test;

/// Records until the writer fails and checks what is left.
void recordUntilFull(const Path& path) {
  VideoSettings settings = screenVideo;
  settings.averageBitRate = 20'000'000;
  Recording recording(path, settings);
  ASSERT_EQ(recording.writer->status(), AssetWriter::Status::writing);
  int frame = 0;
  for (; frame < 2000 && recording.writer->status() == AssetWriter::Status::writing; ++frame) {
    auto noise = std::make_shared<TestPicture>(320, 180);
    for (int row = 0; row < 180; row += 4) {
      for (int column = 0; column < 320; column += 4) {
        noise->fill(column, row, 4, 4, {(row * 31 + column * 17 * (frame + 1)) % 256, frame * 40 % 256, column % 256});
      }
    }
    while (!recording.pictures->isReadyForMoreMediaData() &&
           recording.writer->status() == AssetWriter::Status::writing) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    recording.pictures->append(pictureAt(noise, MediaTime(frame, 24)));
    recording.system->append(toneAt(frame * 2000, 2000));
    recording.microphone->append(toneAt(frame * 2000, 2000));
  }
  const auto finished = recording.finish();
  ASSERT_FALSE(finished);
  EXPECT_TRUE(finished.error().is(AssetWriterError::diskFull)) << finished.error().fullDescription();
  EXPECT_EQ(recording.writer->status(), AssetWriter::Status::failed);
  EXPECT_TRUE(recording.writer->error()->is(AssetWriterError::diskFull));

  EXPECT_EQ(decodingErrors(path), "") << "what was written before is kept and plays";
  const auto duration = numbersOf(probed(path, "format=duration"));
  ASSERT_FALSE(duration.empty());
  EXPECT_GE(duration[0], 0.9);
  EXPECT_TRUE(recording.writers.repair(path)->wasComplete) << "the index found its room on the full disk";
}

TEST(MovieOnAFullDisk, failsAndLeavesAFinishedMovieOfWhatWasWritten) {
  TestDirectory directory;
  bool mounted = false;
  // A mount that only this thread and those it starts can see.
  std::thread([&] {
    const Path disk = directory.path() + "/disk";
    std::filesystem::create_directory(disk);
    if (::unshare(CLONE_FS | CLONE_NEWNS) != 0) return;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    mounted = ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=14m") == 0;
    if (mounted) recordUntilFull(disk + "/movie.mp4");
  }).join();
  if (!mounted) GTEST_SKIP() << "SKIPPED: mounting a small disk needs rights that this process lacks";
}

}  // namespace
}  // namespace quillbeam
