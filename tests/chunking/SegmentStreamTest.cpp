#include "chunking/SegmentStream.h"

#include <cerrno>

#include "chunking/ChunkWorld.h"
#include "chunking/VideoChunkError.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t part = 5'242'880;
constexpr std::size_t mebibyte = 1 << 20;
const Error refused("Test", 1, "no");

struct StreamWorld : ChunkWorld, VideoChunkWriterDelegate {
  StreamWorld() {
    stream->setUploadDelegate(upload);
    stream->setObserver(this);
  }

  /// The stream has begun, its upload is open, an (empty) initialization is through.
  void open() {
    stream->begin();
    receive(SegmentKind::initialization, 0);
    world.dispatch.advance(500ms);
  }
  void receive(SegmentKind kind, std::size_t size, std::optional<SegmentReport> report = std::nullopt) {
    Bytes bytes = size >= 8 ? simSegmentContent(0, received++, size) : Bytes(size);
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    stream->receive({ByteChain(std::move(bytes)), kind, std::move(report)});
  }
  void media(std::size_t size) {
    receive(SegmentKind::separable, size);
    world.dispatch.runUntilIdle();
  }
  Task<void> finishing() {
    CO_TRY_VOID(co_await stream->awaitFinalSegment());
    co_return co_await stream->finishUpload();
  }
  /// With nothing that is still to come.
  Result<void> finish(std::size_t lastSegment) {
    stream->expectFinalSegment();
    media(lastSegment);
    return await(finishing());
  }
  void chunkWriterDidUploadPart(int partNumber) override { uploadedParts.push_back(partNumber); }
  void chunkWriterDidFailWithError(const Error& error) override { failures.push_back(error.description()); }

  Logger logger{platform.systemLog, "com.quillbeam.recorder", "VideoChunkWriter"};
  std::unique_ptr<SegmentStream> stream = std::make_unique<SegmentStream>(
      platform, stored, notifications, logger, SegmentStream::Recording{"team", "folder", "Weekly", "video/mp4"});
  Bytes sent;
  std::size_t received = 0;
  std::vector<int> uploadedParts;
  std::vector<std::string> failures;
};

TEST(SegmentStream, cutsPartsOfOneSizeAndSendsTheRestIfAny) {
  for (const std::size_t rest : {0, 1}) {
    StreamWorld w;
    w.open();
    for (const std::size_t parts : {0u, 1u, 1u, 2u}) {
      w.media(3 * mebibyte);
      EXPECT_EQ(w.upload->partSizes.size(), parts);
    }
    w.media(3 * mebibyte - 1);
    EXPECT_EQ(w.upload->partSizes.size(), 2u) << "a byte is missing";
    EXPECT_EQ(w.stream->bufferedBytes(), part - 1);
    EXPECT_EQ(w.backups(), 1u);
    EXPECT_TRUE(w.finish(1 + rest));
    EXPECT_EQ(w.upload->partSizes.size(), 3 + rest);
    EXPECT_EQ(w.upload->received, w.sent);
    EXPECT_EQ(w.uploadedParts.size(), 3 + rest);
    EXPECT_EQ(w.backups(), 0u);
  }
}

TEST(SegmentStream, keepsWhatComesBeforeTheUploadIsOpenAndCompletesAfterTheLastAnswer) {
  StreamWorld w;
  w.upload->holdsAnswers = true;
  w.open();
  for (int at = 0; at < 4; ++at) w.media(3 * mebibyte);
  EXPECT_THAT(w.upload->partSizes, IsEmpty());
  w.upload->answerAll();
  w.upload->holdsAnswers = true;
  w.world.dispatch.runUntilIdle();
  EXPECT_THAT(w.upload->partSizes, ElementsAre(part, part));
  EXPECT_THAT(w.stream->inFlightUploads(), ElementsAre(1, 2));
  EXPECT_FALSE(w.finish(1000));
  EXPECT_EQ(w.upload->completions, 0);
  w.upload->answerAll();
  w.world.dispatch.advance(1s);
  EXPECT_TRUE(w.outcome && *w.outcome);
  EXPECT_EQ(w.upload->received, w.sent);
  EXPECT_EQ(w.backups(), 0u);
}

TEST(SegmentStream, aRecordingShorterThanTheOpeningDelayIsUploadedWhole) {
  StreamWorld w;
  w.stream->begin();
  w.receive(SegmentKind::initialization, 1200);
  EXPECT_TRUE(w.finish(7 * mebibyte));
  EXPECT_EQ(w.upload->received, w.sent);
  EXPECT_THAT(w.upload->partSizes, ElementsAre(part, 7 * mebibyte + 1200 - part));
  w.world.dispatch.advance(1s);
  EXPECT_EQ(w.log("Attempting").size(), 1u);
  EXPECT_EQ(w.backups(), 0u);
}

TEST(SegmentStream, dropsUnknownKindsWithoutCountingThem) {
  StreamWorld w;
  w.open();
  w.stream->receive({ByteChain(Bytes(100)), SegmentKind{3}, std::nullopt});
  EXPECT_TRUE(w.finish(1000));
  EXPECT_THAT(w.errors(), ElementsAre("Received segment with unknown type 3"));
  EXPECT_THAT(w.log(), Contains("Received media segment #1, size: 1000 bytes"));
  EXPECT_EQ(w.upload->received, w.sent);
}

TEST(SegmentStream, discardsWhenUploadsStallButKeepsTheBackupAndSaysSo) {
  const std::string warning =
      "⚠️ Upload buffer exceeds 150MB limit - uploads appear stalled. Stopping chunked upload to prevent OOM. Local "
      "backup will continue.";
  const std::string cleared = "⚠️ Cleared upload buffer. Recording continues to local backup file only.";
  StreamWorld w;
  w.upload->holdsAnswers = true;
  w.open();
  w.media(8);
  w.world.files.failBelow("/home", ENOSPC);  // nor does a full disk stop anything
  w.media(150 * mebibyte - 8);
  EXPECT_EQ(w.stream->bufferedBytes(), 150 * mebibyte);
  w.media(1);
  EXPECT_EQ(w.stream->bufferedBytes(), 0u);
  w.media(150 * mebibyte + 1);
  EXPECT_THAT(w.errors(), ElementsAre(warning, cleared, cleared));
  EXPECT_EQ(w.stream->segmentIndex(), 5u) << "what was discarded counts";
  w.world.files.failBelow("/home", 0);
  w.upload->answerAll();
  w.media(part);
  EXPECT_THAT(w.upload->partSizes, ElementsAre(part)) << "and numbers begin with 1";
  EXPECT_TRUE(w.finish(1));
  EXPECT_EQ(w.errors().back(), "⚠️ The upload lacks parts of the recording - keeping segment backup for recovery");
  EXPECT_EQ(w.backups(), 1u);
}

TEST(SegmentStream, aPartThatWasNotTakenKeepsTheBackupAndSaysSo) {
  const std::string_view lines[] = {"❌ Failed to upload buffered part #1: no",
                                    "❌ Real-time upload failed for part #2: no", "❌ Final part #3 upload failed: no"};
  for (const std::set<int>& lost : {std::set{1}, {2}, {3}, {1, 3}}) {
    StreamWorld w;
    for (const int number : lost) w.upload->partErrors.emplace(number, refused);
    w.stream->begin();
    w.receive(SegmentKind::initialization, 1000);
    w.media(part);
    w.world.dispatch.advance(500ms);
    w.media(part);
    EXPECT_TRUE(w.finish(1000)) << "that the service is content is no reason to lose what it lacks";
    EXPECT_EQ(w.backups(), 1u);
    for (const int number : lost) EXPECT_THAT(w.errors(), Contains(lines[number - 1]));
    EXPECT_EQ(w.failures, std::vector<std::string>(lost.size(), "no"));
    EXPECT_EQ(w.uploadedParts.size(), 3 - lost.size());
    EXPECT_EQ(w.log("Failed to upload final part: no").size(), lost.count(3));
    EXPECT_EQ(w.log("Final upload completed successfully").size(), 1 - lost.count(3));
  }
}

TEST(SegmentStream, anOpeningThatFailsIsAnnouncedAndSendsNothingEver) {
  for (const bool serviceIsContent : {true, false}) {
    StreamWorld w;
    ValueMap announced;
    const auto observation =
        w.notifications.observe("macRecordingEntryUpdate", [&](const ValueMap& info) { announced = info; });
    w.upload->openingError = refused;
    ValueMap expected{
        {"event", "initFailed"}, {"fileId", ""}, {"teamId", "team"}, {"folderId", "folder"}, {"error", "no"}};
    if (!serviceIsContent) {
      w.upload->completionError = Error("Test", 2, "no session");
      w.upload->temporaryId = "temp-1";
      expected.set("tempFileId", "temp-1");
    }
    w.open();
    EXPECT_EQ(announced, expected);
    w.media(part);
    EXPECT_EQ(w.finish(part).has_value(), serviceIsContent);
    EXPECT_THAT(w.upload->partSizes, IsEmpty());
    EXPECT_EQ(w.upload->completions, 1);
    EXPECT_EQ(w.backups(), 1u);
    EXPECT_THAT(w.failures, ElementsAre("no"));
    EXPECT_EQ(w.errors().front(), "❌ Failed to initialize multipart upload: no");
    EXPECT_EQ(w.log("❌ Failed to complete multipart upload: no session").size(), serviceIsContent ? 0u : 1u);
  }
}

TEST(SegmentStream, withoutADelegateItIsABackupAlone) {
  StreamWorld w;
  w.stream->setUploadDelegate(nullptr);
  w.open();
  EXPECT_TRUE(w.finish(part).error().is(VideoChunkError::uploadDelegateNotSet));
  EXPECT_THAT(w.failures, ElementsAre("Upload delegate not configured for chunk uploads"));
  EXPECT_EQ(w.backups(), 1u);
}

TEST(SegmentStream, waitsTwoSecondsForTheFinalSegmentAndNeverSendsAnythingAfterTheFinalPart) {
  for (const Duration late : {1900ms, 2100ms}) {
    StreamWorld w;
    w.open();
    w.media(1000);
    w.stream->expectFinalSegment();
    w.start(w.finishing());
    w.world.dispatch.advance(late - 100ms);
    w.upload->holdsAnswers = true;
    w.world.dispatch.advance(100ms);
    w.media(part);
    w.upload->answerAll();
    w.world.dispatch.advance(1s);
    EXPECT_TRUE(w.outcome && *w.outcome);
    const bool inTime = late < 2s;
    EXPECT_EQ(w.upload->received.size(), inTime ? part + 1000 : 1000);
    EXPECT_EQ(w.backups(), inTime ? 0u : 1u);
    EXPECT_EQ(w.log("📦 Final segment received after waiting").size(), inTime ? 1u : 0u);
    EXPECT_EQ(
        w.log("⚠️ Timeout waiting for final segment, proceeding with available data (byteBuffer=1000 bytes)").size(),
        inTime ? 0u : 1u);
  }
}

TEST(SegmentStream, whatWaitsForTheDiskIsTakenInBeforeTheRestGoes) {
  StreamWorld w;
  w.open();
  w.stream->expectFinalSegment();
  for (int at = 0; at < 3; ++at) w.receive(SegmentKind::separable, 3 * mebibyte);
  w.world.dispatch.runUntil([&] { return w.stream->segmentIndex() == 2; }, 1s);  // one has passed for the final one
  EXPECT_TRUE(w.await(w.finishing()));
  EXPECT_EQ(w.upload->received, w.sent);
  EXPECT_EQ(w.backups(), 0u);
}

TEST(SegmentStream, answersThatComeWhenItHasGoneAreHeardByNobody) {
  StreamWorld w;
  w.open();
  w.upload->holdsAnswers = true;
  w.media(part);
  ASSERT_EQ(w.upload->held.size(), 1u);
  w.upload->answerAll();  // on its way to main
  w.upload->holdsAnswers = true;
  w.media(part);
  w.stream.reset();
  w.upload->answerAll();
  w.world.dispatch.advance(3s);
  EXPECT_THAT(w.uploadedParts, ElementsAre(1));
  EXPECT_EQ(w.backups(), 1u);
}

TEST(SegmentStream, tellsInOrderWhatBecomesOfARecording) {
  StreamWorld w;
  w.stream->begin();
  w.receive(SegmentKind::initialization, 1200);
  SegmentReport report{{{MediaType::video, MediaTime::zero(), MediaTime(10, 1), MediaTime(1, 24)},
                        {MediaType::audio, MediaTime(1, 10), MediaTime(99, 10), std::nullopt}}};
  w.receive(SegmentKind::separable, 6'000'000, report);
  w.world.dispatch.advance(500ms);
  w.media(5'000'000);
  w.stream->expectFinalSegment();
  w.media(4);
  EXPECT_TRUE(w.await(w.finishing()));
  std::string story;
  for (const std::string& line : w.log()) story += line + "|\n";
  for (const std::string& id = *w.upload->opened->segmentBackupId; story.find(id) != std::string::npos;) {
    story.replace(story.find(id), id.size(), "<id>");
  }
  EXPECT_EQ(story, R"(Upload delegate set for native upload mode|
✅ Segment backup manager initialized for crash recovery with ID: <id>|
Received initialization segment, size: 1200 bytes|
Segment #0 starts with box: ftyp|
Buffered segment #0, size: 1200 bytes, total buffered: 1200 bytes (0%)|
⏳ Multipart not ready yet, buffering data (total: 1200 bytes)|
Segment #1 timing: vide start=0.000s dur=10.000s firstPTS=0.042s | soun start=0.100s dur=9.900s|
Received media segment #1, size: 6000000 bytes|
Segment #1 starts with box: moof|
Buffered segment #1, size: 6000000 bytes, total buffered: 6001200 bytes (114%)|
⏳ Multipart not ready yet, buffering data (total: 6001200 bytes)|
Attempting to initialize multipart upload for Weekly |
TeamId: team, FolderId: folder, LocalBackup: none, SegmentBackupId: <id>|
✅ Multipart upload initialized successfully with fileId: file-1|
📤 Checking for buffered data to upload after initialization (buffer: 6001200 bytes)|
🚀 Uploading buffered part #1 with exactly 5242880 bytes (remaining buffer: 758320 bytes)|
✅ Buffered part #1 uploaded successfully (5242880 bytes)|
Received media segment #2, size: 5000000 bytes|
Segment #2 starts with box: moof|
Buffered segment #2, size: 5000000 bytes, total buffered: 5758320 bytes (109%)|
🚀 Starting upload for part #2 with exactly 5242880 bytes (remaining buffer: 515440 bytes)|
Uploading video fMP4 part #2, size: 5242880 bytes |
✅ Part #2 uploaded successfully (5242880 bytes)|
Received media segment #3, size: 4 bytes|
Buffered segment #3, size: 4 bytes, total buffered: 515444 bytes (9%)|
📦 Final media segment received - signaling completion|
📦 Final segment already received, proceeding immediately|
📊 Post-wait stats: segmentIndex=4, byteBuffer=515444 bytes|
📦 Uploading remaining 515444 bytes as final part|
🏁 Uploading final part #3, size: 515444 bytes (final part can be any size)|
✅ Final part #3 uploaded successfully (515444 bytes)|
📊 Total bytes uploaded: 11001204|
Final upload completed successfully|
All in-flight uploads completed|
Completing multipart upload... |
✅ Multipart upload completed successfully |
)");
}

}  // namespace
}  // namespace quillbeam
