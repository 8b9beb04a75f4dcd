#include "chunking/SegmentStream.h"

#include <cerrno>

#include "chunking/ChunkWorld.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t part = 5'242'880;
constexpr std::size_t mebibyte = 1 << 20;
const Error refused("Test", 1, "no");

std::string segmentName(std::size_t index) {
  return segmentFileName({.index = static_cast<std::int64_t>(index), .type = "media"});
}

struct StreamWorld : ChunkWorld, VideoChunkWriterDelegate {
  explicit StreamWorld(const SegmentPolicy& policy = videoSegmentPolicy())
      : stream(std::make_unique<SegmentStream>(platform, stored, notifications, logger, policy,
                                               SegmentStream::Recording{"team", "folder", "Weekly", "video/mp4"})) {
    stream->setUploadDelegate(upload);
    stream->setObserver(this);
  }

  /// The stream has begun, its upload is open, an (empty) initialization is through.
  void open() {
    stream->begin();
    receive(SegmentKind::initialization, 0);
    world.dispatch.advance(500ms);
  }
  void receive(SegmentKind kind, std::size_t size) {
    Bytes bytes = size >= 8 ? simSegmentContent(0, received++, size) : Bytes(size);
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    stream->receive({ByteChain(std::move(bytes)), kind, std::nullopt});
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
    stream->expectFinalSegment(std::nullopt);
    media(lastSegment);
    return await(finishing());
  }
  void chunkWriterDidUploadPart(int partNumber) override { uploadedParts.push_back(partNumber); }
  void chunkWriterDidFailWithError(const Error& error) override { failures.push_back(error.description()); }

  Logger logger{platform.systemLog, "com.quillbeam.recorder", "VideoChunkWriter"};
  std::unique_ptr<SegmentStream> stream;
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

TEST(SegmentStream, discardsWhenUploadsStallButKeepsTheBackupAndSaysSo) {
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
  EXPECT_EQ(w.stream->bufferedBytes(), 0u);
  EXPECT_EQ(w.stream->segmentIndex(), 5u) << "what was discarded counts";
  w.world.files.failBelow("/home", 0);
  w.upload->answerAll();
  w.media(part);
  EXPECT_THAT(w.upload->partSizes, ElementsAre(part)) << "and numbers begin with 1";
  EXPECT_TRUE(w.finish(1));
  EXPECT_FALSE(w.errors().empty());
  EXPECT_EQ(w.backups(), 1u);
}

TEST(SegmentStream, leavesWhatWaitsOfSoundOnDiskAndSendsItAllOnceItCan) {
  StreamWorld w(audioSegmentPolicy());
  w.upload->holdsAnswers = true;
  w.open();
  for (int at = 0; at < 20; ++at) {
    w.world.files.failBelow("/home", at == 15 ? ENOSPC : 0);  // what the disk did not take stays in memory
    w.media(3 * mebibyte);
  }
  w.world.files.failBelow("/home", 0);
  w.upload->answerAll();
  w.upload->holdsAnswers = true;
  w.world.dispatch.advance(1s);
  EXPECT_THAT(w.stream->inFlightUploads(), ElementsAre(1, 2, 3, 4)) << "the delegate's share is bounded too";
  w.media(1000);
  w.upload->answerAll();
  EXPECT_TRUE(w.await(w.stream->finishUpload()));
  EXPECT_EQ(w.upload->partSizes.size(), 13u);
  EXPECT_TRUE(w.upload->received == w.sent);
  EXPECT_EQ(w.backups(), 0u);
}

TEST(SegmentStream, leavesOutWholeSegmentsThatCannotBeReadBackAndKeepsTheBackup) {
  for (const std::size_t lost : {8u, 9u}) {
    StreamWorld w(audioSegmentPolicy());
    w.upload->holdsAnswers = true;
    w.open();
    for (int at = 0; at < 10; ++at) w.media(3 * mebibyte);
    const Path directory = *w.stored.findRecordingDirectory(w.stored.getIncompleteRecordings()[0].id);
    // The first six, 18 MiB, are held.
    for (const std::size_t at : {0u, 5u}) EXPECT_TRUE(w.world.files.remove(joined(directory, segmentName(at))));
    EXPECT_TRUE(w.world.files.writeAtomically(joined(directory, segmentName(lost)), ByteChain(Bytes(1000))));
    w.upload->answerAll();
    EXPECT_TRUE(w.await(w.stream->finishUpload()));
    const auto gap = w.sent.begin() + static_cast<std::ptrdiff_t>(lost * 3 * mebibyte);
    w.sent.erase(gap, gap + 3 * mebibyte);
    EXPECT_TRUE(w.upload->received == w.sent) << lost;
    EXPECT_FALSE(w.errors().empty());
    EXPECT_EQ(w.backups(), 1u);
  }
}

TEST(SegmentStream, aPartThatWasNotTakenKeepsTheBackupAndSaysSo) {
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
    EXPECT_GE(w.errors().size(), lost.size());
    EXPECT_EQ(w.failures, std::vector<std::string>(lost.size(), "no"));
    EXPECT_EQ(w.uploadedParts.size(), 3 - lost.size());
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
  }
}

TEST(SegmentStream, waitsTwoSecondsForTheFinalSegmentAndNeverSendsAnythingAfterTheFinalPart) {
  for (const Duration late : {1900ms, 2100ms}) {
    StreamWorld w;
    w.open();
    w.media(1000);
    w.stream->expectFinalSegment(std::nullopt);
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
  }
}

}  // namespace
}  // namespace quillbeam
