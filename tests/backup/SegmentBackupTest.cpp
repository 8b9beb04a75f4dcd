#include <gmock/gmock.h>

#include <cerrno>
#include <tuple>

#include "backup/SegmentBackupManager.h"
#include "base/TaskScope.h"
#include "platform/sim/SimWorld.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

const Path support = "/home/user/.local/share/io.quillbeam.app";

struct BackupWorld {
  BackupWorld() { EXPECT_TRUE(world.files.createDirectories("/home/user/.cache")); }

  /// A backup as a recording writes it: the initialization and so many media segments. Its id.
  std::string record(int mediaSegments, const std::string& fileName = "Weekly") {
    SegmentBackupManager manager(platform, stored);
    const std::string id =
        manager.startNewRecording({"t", "f", fileName, SegmentBackupRecordingType::video, "video/mp4"});
    std::ignore = save(manager, "init ", SegmentKind::initialization, 0);
    for (int index = 1; index <= mediaSegments; ++index) {
      std::ignore = save(manager, "media" + std::to_string(index) + " ", SegmentKind::separable, index);
    }
    return id;
  }

  Result<void> save(SegmentBackupManager& manager, std::string_view text, SegmentKind kind, int index) {
    return await(manager.saveSegment(ByteChain(Bytes(text.begin(), text.end())), kind, index));
  }

  Result<void> await(Task<void> task) {
    std::optional<Result<void>> ended;
    TaskScope tasks(platform.dispatch.main());
    tasks.start(std::move(task), [&](Result<void> result) { ended = std::move(result); });
    world.dispatch.runUntil([&] { return ended.has_value(); }, 1min);
    return ended.value_or(CommonError::cancelled);
  }

  std::vector<std::string> names(const Path& directory) {
    return world.files.list(directory).value_or(std::vector<std::string>());
  }
  std::string content(const Path& path) {
    const auto bytes = world.files.read(path);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "(none)";
  }
  std::vector<std::string> log() {
    std::vector<std::string> lines;
    for (const auto& line : world.systemLog.lines()) lines.push_back(line.text);
    return lines;
  }
  std::vector<std::string> ids() {
    std::vector<std::string> found;
    for (const auto& recording : stored.getIncompleteRecordings()) found.push_back(recording.id);
    return found;
  }
  Path directoryOf(const std::string& id) const { return support + "/segment_recordings/" + id; }

  SimWorld world;
  Platform platform = world.platform();
  StoredRecordings stored{platform};
};

TEST(SegmentBackup, namesOnDiskWhatIsOnDisk) {
  BackupWorld w;
  const std::string id = w.record(3);
  EXPECT_THAT(w.names(w.directoryOf(id)),
              ElementsAre("init.mp4", "metadata.json", "segment_0001.mp4", "segment_0002.mp4", "segment_0003.mp4"));
  const auto metadata = readMetadata(w.world.files, w.directoryOf(id));
  ASSERT_TRUE(metadata);
  std::vector<std::int64_t> indexes;
  for (const auto& segment : metadata->segments) indexes.push_back(segment.index);
  EXPECT_THAT(indexes, ElementsAre(-1, 1, 2, 3));
  EXPECT_EQ(metadata->segmentCount(), 3);
  EXPECT_FALSE(metadata->fileId);
  EXPECT_EQ(segmentFileName({.index = 12345, .type = "media"}), "segment_12345.mp4");
}

TEST(SegmentBackup, leavesOutASegmentThatCannotBeWrittenAndGoesOn) {
  BackupWorld w;
  SegmentBackupManager manager(w.platform, w.stored);
  const std::string id = manager.startNewRecording({.fileName = "Weekly"});
  ASSERT_TRUE(w.save(manager, "init", SegmentKind::initialization, 0));
  w.world.files.failStep(1, ENOSPC);
  EXPECT_EQ(w.save(manager, "one", SegmentKind::separable, 1).error().code(), ENOSPC);
  EXPECT_FALSE(w.save(manager, "odd", SegmentKind{3}, 1));
  EXPECT_TRUE(w.save(manager, "two", SegmentKind::separable, 2));
  EXPECT_THAT(w.names(w.directoryOf(id)), ElementsAre("init.mp4", "metadata.json", "segment_0002.mp4"));
}

TEST(SegmentBackup, survivesAPowerCutAtAnyStepWithoutNamingWhatIsNotThere) {
  for (std::uint64_t step = 1;; ++step) {
    BackupWorld w;
    w.world.files.dieAtStep(step);
    w.record(2);
    const bool died = w.world.files.isDead();
    w.world.restart(PowerCut::tearUnsynced);
    for (const std::string& id : w.names(support + "/segment_recordings")) {
      const auto metadata = readMetadata(w.world.files, w.directoryOf(id));
      if (!metadata) continue;
      for (const auto& segment : metadata->segments) {
        EXPECT_EQ(w.content(joined(w.directoryOf(id), segmentFileName(segment))).size(), segment.size) << step;
      }
    }
    if (!died) break;
  }
}

TEST(SegmentBackup, fallsBackToTheCaches) {
  BackupWorld w;
  w.world.files.failBelow("/home/user/.local", EROFS);
  w.record(1);
  EXPECT_THAT(w.log(), IsSupersetOf({std::string("Segment recordings directory (Caches fallback): "
                                                 "/home/user/.cache/io.quillbeam.app/segment_recordings")}));
  EXPECT_EQ(w.ids().size(), 1u);
}

TEST(SegmentBackup, goesWhenTheUploadHasCompleted) {
  BackupWorld w;
  SegmentBackupManager manager(w.platform, w.stored);
  const std::string id = manager.startNewRecording({.fileName = "Weekly"});
  ASSERT_TRUE(w.await(manager.updateFileId("file-1")));
  EXPECT_EQ(readMetadata(w.world.files, w.directoryOf(id))->fileId, "file-1");
  ASSERT_TRUE(w.await(manager.finalizeRecording()));
  EXPECT_FALSE(w.world.files.exists(w.directoryOf(id)));
  ASSERT_TRUE(w.await(manager.finalizeRecording()));
  EXPECT_EQ(w.log().back(), "No recording to finalize");
}

TEST(Recovery, joinsWhatCanBeReadInOrder) {
  BackupWorld w;
  const std::string id = w.record(3);
  ASSERT_TRUE(w.world.files.remove(w.directoryOf(id) + "/segment_0002.mp4"));
  const auto file = w.stored.recoverRecording(id);
  EXPECT_EQ(file, support + "/recovered_recordings/recovered_" + id + ".mp4");
  EXPECT_EQ(w.content(file.value_or("")), "init media1 media3 ");
  EXPECT_EQ(w.log().back(), "Successfully recovered recording: " + id + " (19 bytes, 2 segments)");
  EXPECT_EQ(w.stored.recoverRecording(id), file) << "again, over what is there";
  EXPECT_EQ(w.content(*file), "init media1 media3 ");
  ASSERT_TRUE(w.world.files.remove(w.directoryOf(id) + "/init.mp4"));
  EXPECT_EQ(w.stored.recoverRecording(id), std::nullopt);
}

TEST(Recovery, findsARecordingByItsFileIdAndNeverLeavesItsDirectory) {
  BackupWorld w;
  const std::string id = w.record(1);
  auto metadata = readMetadata(w.world.files, w.directoryOf(id)).value();
  metadata.fileId = "file-7";
  ASSERT_TRUE(writeMetadata(w.world.files, w.directoryOf(id), metadata));
  EXPECT_EQ(w.stored.recoverRecording("file-7"), support + "/recovered_recordings/recovered_file-7.mp4");
  EXPECT_EQ(w.stored.recoverRecording("../segment_recordings/" + id), std::nullopt);
  w.stored.cleanupRecording("..");
  EXPECT_TRUE(w.world.files.exists(w.directoryOf(id)));
  w.stored.cleanupRecording("file-7");
  EXPECT_FALSE(w.world.files.exists(w.directoryOf(id)));
}

TEST(Recovery, cleansUpByAgeThenByNumberButNeverWhatIsBeingRecorded) {
  BackupWorld w;
  const std::string onlyInit = w.record(0);
  for (int old = 0; old < 2; ++old) w.record(1);
  w.world.dispatch.setWallClock(w.world.dispatch.now() + std::chrono::days(10));
  SegmentBackupManager live(w.platform, w.stored);
  const std::string liveId = live.startNewRecording({.fileName = "Live"});
  std::ignore = w.save(live, "init", SegmentKind::initialization, 0);
  std::ignore = w.save(live, "one", SegmentKind::separable, 1);
  std::vector<std::string> young;
  for (int fresh = 0; fresh < 6; ++fresh) {
    w.world.dispatch.advance(1s);
    young.push_back(w.record(1));
  }
  w.stored.cleanupOldRecordings(7, 5);
  auto left = w.ids();
  EXPECT_THAT(left, ElementsAre(young[5], young[4], young[3], young[2], young[1], liveId));
  EXPECT_TRUE(w.world.files.exists(w.directoryOf(onlyInit)));
  EXPECT_THAT(w.log(), IsSupersetOf({std::string("Enforced max count limit: kept 5, deleted 1"),
                                     std::string("Cleaned up 3 old/excess recordings")}));
}

}  // namespace
}  // namespace quillbeam
