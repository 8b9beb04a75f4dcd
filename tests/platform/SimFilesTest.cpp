#include "platform/sim/SimFiles.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <set>
#include <string>

#include "platform/sim/SimDispatch.h"

namespace quillbeam {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ByteChain bytesOf(std::string_view text) { return ByteChain(Bytes(text.begin(), text.end())); }

struct Disk {
  explicit Disk(std::uint64_t seed = 1) : files(clock, seed) { EXPECT_TRUE(files.createDirectories("/data")); }

  std::string content(const Path& path) {
    const Result<Bytes> bytes = files.read(path);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "(" + std::to_string(bytes.error().code()) + ")";
  }
  std::vector<std::string> names() { return files.list("/data").value_or(std::vector<std::string>{"(failed)"}); }

  SimDispatch clock;
  SimFiles files;
};

TEST(SimFilesPowerCut, keepsWhatWasMadeDurableAndDropsTheRest) {
  Disk disk;
  ASSERT_TRUE(disk.files.writeAtomically("/data/durable", bytesOf("kept")));
  ASSERT_TRUE(disk.files.append("/data/durable", bytesOf(" lost"), Durability::cached));
  ASSERT_TRUE(disk.files.writeNew("/data/cached", bytesOf("lost"), Durability::cached));
  disk.files.powerCut(PowerCut::dropUnsynced);
  EXPECT_EQ(disk.content("/data/durable"), "kept");
  EXPECT_THAT(disk.names(), ElementsAre("durable"));
}

TEST(SimFilesPowerCut, showsAnUnsyncedFileAsEmptyWhenOnlyItsDirectoryEntryMadeIt) {
  Disk disk;
  ASSERT_TRUE(disk.files.writeNew("/data/cached", bytesOf("lost"), Durability::cached));
  ASSERT_TRUE(disk.files.writeAtomically("/data/other", bytesOf("x")));
  disk.files.powerCut(PowerCut::dropUnsynced);
  EXPECT_EQ(disk.content("/data/cached"), "");
}

TEST(SimFilesPowerCut, forgetsRemovalsAndRenamesThatWereNotCommitted) {
  Disk disk;
  ASSERT_TRUE(disk.files.writeAtomically("/data/a", bytesOf("a")));
  ASSERT_TRUE(disk.files.writeAtomically("/data/b", bytesOf("b")));
  ASSERT_TRUE(disk.files.rename("/data/a", "/data/c"));
  ASSERT_TRUE(disk.files.remove("/data/b"));
  disk.files.powerCut(PowerCut::dropUnsynced);
  EXPECT_THAT(disk.names(), ElementsAre("a", "b"));
}

TEST(SimFilesPowerCut, tearsDifferentlyFromSeedToSeedAndEquallyForOneSeed) {
  const auto torn = [](std::uint64_t seed) {
    Disk disk(seed);
    EXPECT_TRUE(disk.files.writeNew("/data/log", bytesOf("synced|"), Durability::durable));
    EXPECT_TRUE(disk.files.append("/data/log", bytesOf("unsynced"), Durability::cached));
    disk.files.powerCut(PowerCut::tearUnsynced);
    return disk.content("/data/log");
  };
  std::set<std::string> outcomes;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    const std::string outcome = torn(seed);
    EXPECT_TRUE(outcome.starts_with("synced|")) << "what was synced is never torn";
    EXPECT_EQ(outcome, torn(seed));
    outcomes.insert(outcome);
  }
  EXPECT_TRUE(outcomes.contains("synced|"));
  EXPECT_TRUE(outcomes.contains("synced|unsynced"));
  EXPECT_GT(outcomes.size(), 4u);
}

TEST(SimFilesPowerCut, atAnyStepOfAnAtomicWriteLeavesTheOldOrTheNewContent) {
  for (const PowerCut cut : {PowerCut::dropUnsynced, PowerCut::keepUnsynced, PowerCut::tearUnsynced}) {
    for (std::uint64_t at = 1; at <= 6; ++at) {
      Disk disk(at);
      ASSERT_TRUE(disk.files.writeAtomically("/data/state", bytesOf("old")));
      disk.files.dieAtStep(at);
      const bool written = disk.files.writeAtomically("/data/state", bytesOf("new")).has_value();
      disk.files.powerCut(cut);
      EXPECT_EQ(written, at == 6);
      EXPECT_THAT(disk.content("/data/state"), testing::AnyOf("old", "new"));
      EXPECT_TRUE(!written || disk.content("/data/state") == "new");
    }
  }
}

TEST(SimFilesProcessDeath, keepsCachedDataAndReleasesLocks) {
  Disk disk;
  const auto lock = disk.files.lock("/data/lock", "1");
  ASSERT_TRUE(lock);
  ASSERT_TRUE(disk.files.writeNew("/data/cached", bytesOf("kept"), Durability::cached));
  disk.files.die();
  EXPECT_EQ(disk.content("/data/cached"), "(" + std::to_string(EIO) + ")");
  disk.files.processDeath();
  EXPECT_EQ(disk.content("/data/cached"), "kept");
  EXPECT_TRUE(disk.files.lock("/data/lock", "2"));
}

TEST(SimFilesFaults, aFailedStepIsReportedCleanedUpAndOver) {
  for (std::uint64_t at = 1; at <= 4; ++at) {
    Disk disk;
    disk.files.failStep(at, ENOSPC);
    const auto written = disk.files.writeAtomically("/data/state", bytesOf("new"));
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().code(), ENOSPC);
    EXPECT_THAT(disk.names(), IsEmpty());
    EXPECT_TRUE(disk.files.writeAtomically("/data/state", bytesOf("new")));
  }
}

}  // namespace
}  // namespace quillbeam
