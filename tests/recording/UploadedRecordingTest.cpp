#include <gmock/gmock.h>

#include <map>
#include <ranges>
#include <regex>

#include "chunking/ChunkUploadError.h"
#include "recording/Recorder.h"
#include "support/SimUploadService.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

/// A recorder on a machine whose uploads reach a simulated service.
struct UploadingRecorder {
  UploadingRecorder() {
    world.mediaWriters.setSegmentScript({.mediaSize = 3'000'000});
    recorder.apiClient.configure(std::string(SimUploadService::baseUrl), service.token);
    observation = recorder.notifications.observe(
        "macRecordingEntryUpdate", [this](const ValueMap& userInfo) { entryUpdates.emplace_back(userInfo); });
    EXPECT_TRUE(recorder.select());
  }

  Result<StopRecordingResult> record(const std::string& name, Duration length) {
    EXPECT_TRUE(recorder.await(recorder.manager.startMacRecording(Recorder::uploadRequest(name))));
    world.dispatch.advance(length);
    return recorder.stop();
  }

  /// All segments of the n-th recording, as they came out of its writer.
  Bytes segments(std::size_t recording) const {
    ByteChain chain;
    for (const Segment& segment : world.mediaWriters.segmentedMovies()[recording]->segments)
      chain.append(segment.bytes);
    return chain.flattened();
  }

  /// The figures of the newest line about memory: "sysAudioQueue=12, …".
  std::map<std::string, int> lastMemoryLine() const {
    std::map<std::string, int> figures;
    for (const auto& line : world.systemLog.lines() | std::views::reverse) {
      if (line.text.find("📊 Memory Stats: ") == std::string::npos) continue;
      static const std::regex figure("(\\w+(?:Queue|Buffers|Buffer))=(\\d+)");
      for (std::sregex_iterator at(line.text.begin(), line.text.end(), figure), end; at != end; ++at) {
        figures[(*at)[1]] = std::stoi((*at)[2]);
      }
      break;
    }
    return figures;
  }

  /// The simulated writers remember everything; an hour of it is too much.
  void forgetOldSamples() {
    for (SimMovie* movie :
         {world.mediaWriters.movies().front().get(), &world.mediaWriters.lastSegmentedMovie().content}) {
      for (const auto& track : movie->tracks) {
        if (!track->samples.empty()) track->samples.erase(track->samples.begin(), track->samples.end() - 1);
      }
    }
  }

  SimWorld world;
  SimUploadService service{world.network};
  Recorder recorder{world};
  std::vector<Value> entryUpdates;
  std::unique_ptr<NotificationCenter::Observation> observation;
};

TEST(UploadedRecording, isAtTheServiceWhenItStops) {
  UploadingRecorder r;
  const auto stopped = r.record("Weekly", 25s);
  ASSERT_TRUE(stopped);
  EXPECT_EQ(stopped->filePath, "/tmp/Weekly.mp4");
  EXPECT_TRUE(stopped->usedNativeUpload);
  ASSERT_EQ(r.service.uploads.size(), 1u);
  const SimUpload& upload = r.service.uploads.begin()->second;
  EXPECT_EQ(stopped->nativeUploadFileId, upload.fileId);
  EXPECT_EQ(upload.source, "multipart-upload-screen-macos");
  EXPECT_EQ(upload.parts.size(), 2u);
  EXPECT_EQ(upload.object, r.segments(0));
  EXPECT_TRUE(r.recorder.stored.getIncompleteRecordings().empty());
  EXPECT_EQ(r.recorder.printed("✅ Chunked recording finalized successfully"), 1);
  ASSERT_EQ(r.entryUpdates.size(), 1u);
  EXPECT_EQ(r.entryUpdates[0].at("tempFileId"), Value("pending_Weekly"));
  EXPECT_EQ(r.entryUpdates[0].at("localBackupPath"), Value("/tmp/Weekly_chunk_backup.mp4"));
}

TEST(UploadedRecording, holdsTheSameSoundAndPicturesAsTheFile) {
  UploadingRecorder r;
  ASSERT_TRUE(r.record("Weekly", 12s));
  const SimMovie& file = *r.world.mediaWriters.movies().front();
  const SimMovie& uploaded = r.world.mediaWriters.lastSegmentedMovie().content;
  EXPECT_EQ(uploaded.pictures()->samples.size(), file.pictures()->samples.size());
  EXPECT_EQ(uploaded.duration(), file.duration());
  // The mix ends with the last whole block.
  const MediaTime mixed = uploaded.sound(0)->samples.back().presentationTime();
  EXPECT_GT(mixed, file.sound(0)->samples.back().presentationTime() - MediaTime(3 * 1024, 48'000));
}

TEST(UploadedRecording, neverEndsUpInTheOneBeforeIt) {
  UploadingRecorder r;
  ASSERT_TRUE(r.record("First", 12s));
  const Bytes first = r.service.uploads.begin()->second.object;
  r.service.interfere = [](const SimExchange&) { return std::optional(HttpResponse{.status = 500}); };
  const auto stopped = r.record("Second", 12s);
  ASSERT_FALSE(stopped);
  EXPECT_TRUE(stopped.error().is(ChunkUploadError::uploadFailed));
  EXPECT_EQ(stopped.error().description(), "No active upload session");
  EXPECT_EQ(stopped.error().payload()->at("localBackupPath"), Value("/tmp/Second.mp4"));
  ASSERT_EQ(r.service.uploads.size(), 1u);
  EXPECT_EQ(r.service.uploads.begin()->second.object, first);
  EXPECT_EQ(r.entryUpdates.back().at("event"), Value("initFailed"));
  EXPECT_EQ(r.entryUpdates.back().at("tempFileId"), Value("pending_Second"));
  EXPECT_TRUE(r.recorder.manager.report()->uploadProblem) << "the reason comes before its consequences";
  const auto kept = r.recorder.stored.getIncompleteRecordings();
  ASSERT_EQ(kept.size(), 1u);
  const auto recovered = r.recorder.stored.recoverRecording(kept[0].id);
  EXPECT_EQ(r.world.files.read(recovered.value_or("")).value_or(Bytes()), r.segments(1));
}

TEST(UploadedRecording, isLeftRecoverableWhenTheProcessEnds) {
  UploadingRecorder r;
  ASSERT_TRUE(r.recorder.await(r.recorder.manager.startMacRecording(Recorder::uploadRequest())));
  r.world.dispatch.advance(15s);
  const Duration before = r.world.dispatch.hostTime().toNanoseconds();
  ASSERT_TRUE(r.recorder.await(r.recorder.manager.stopForTermination()));
  ASSERT_TRUE(r.recorder.await(r.recorder.uploads.prepareForTermination()));
  EXPECT_LT(r.world.dispatch.hostTime().toNanoseconds() - before, 5s) << "it waits for no service";
  EXPECT_FALSE(r.recorder.isRecording());
  const auto kept = r.recorder.stored.getIncompleteRecordings();
  ASSERT_EQ(kept.size(), 1u);
  const auto recovered = r.recorder.stored.recoverRecording(kept[0].id);
  EXPECT_EQ(r.world.files.read(recovered.value_or("")).value_or(Bytes()), r.segments(0));
}

TEST(UploadedRecording, goesOnWhenTheFilesDiskIsFull) {
  UploadingRecorder r;
  ASSERT_TRUE(r.recorder.await(r.recorder.manager.startMacRecording(Recorder::uploadRequest())));
  r.world.dispatch.advance(5s);
  SimMovie& file = *r.world.mediaWriters.movies().front();
  r.world.mediaWriters.fail(file, AssetWriterError::diskFull);
  r.world.dispatch.advance(20s);
  EXPECT_TRUE(r.recorder.manager.report()->problem->is(AssetWriterError::diskFull));
  ASSERT_TRUE(r.recorder.stop());
  EXPECT_LT(file.duration(), MediaTime(6, 1));
  const SimMovie& uploaded = r.world.mediaWriters.lastSegmentedMovie().content;
  EXPECT_GT(uploaded.duration(), MediaTime(24, 1));
  EXPECT_GT(uploaded.sound(0)->samples.back().presentationTime(), MediaTime(24, 1));
  EXPECT_EQ(r.service.uploads.begin()->second.object, r.segments(0));
}

TEST(UploadedRecording, keepsItsQueuesBoundedForAnHour) {
  UploadingRecorder r;
  r.world.mediaWriters.setSegmentScript({.mediaSize = 600'000});
  ASSERT_TRUE(r.recorder.await(r.recorder.manager.startMacRecording(Recorder::uploadRequest())));
  std::map<std::string, int> largest{{"byteBuffer", 5120}};
  for (int minute = 1; minute <= 60; ++minute) {
    r.world.dispatch.advance(1min);
    for (const auto& [queue, length] : r.lastMemoryLine()) {
      if (minute <= 5) largest[queue] = std::max(largest[queue], length);
      EXPECT_LE(length, largest[queue]) << queue << " in minute " << minute;
    }
    r.forgetOldSamples();
  }
  EXPECT_EQ(largest.size(), 4u);
  ASSERT_TRUE(r.recorder.stop());
}

TEST(UploadedRecording, ofWhichNobodySaidWhereItBelongsStaysLocal) {
  UploadingRecorder r;
  ASSERT_TRUE(r.recorder.start());
  r.world.dispatch.advance(2s);
  ASSERT_TRUE(r.recorder.stop());
  EXPECT_TRUE(r.service.uploads.empty());
  EXPECT_EQ(r.recorder.printed("🎯 Using traditional recording (local file only)"), 1);
  EXPECT_TRUE(r.recorder.stored.getIncompleteRecordings().empty());
}

}  // namespace
}  // namespace quillbeam
