#include "chunking/VideoChunkWriter.h"

#include <ranges>

#include "chunking/ChunkWorld.h"
#include "chunking/VideoChunkError.h"
#include "platform/sim/SimPicture.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;

const Path localFile = "/home/user/Videos/Weekly.mp4";
const MediaTime frame(1, 24);

struct WriterWorld : ChunkWorld {
  explicit WriterWorld(AudioSources sources = {}, std::uint64_t seed = 1) : ChunkWorld(seed), sources(sources) {
    world.mediaWriters.setSegmentScript({.mediaSize = 6'000'000});
    writer = std::make_unique<VideoChunkWriter>(
        platform, stored, notifications,
        VideoChunkWriter::Options{
            .recording = {"team", "folder", "Weekly", "video/mp4", SegmentBackupRecordingType::video, localFile},
            .width = 320,
            .height = 200,
            .sources = sources});
    writer->setUploadDelegate(upload);
  }

  void appendPicture(MediaTime time) {
    writer->appendVideo(
        SampleBuffer::video(std::make_shared<SimPicture>(320, 200, 50), {frame, time}, FrameStatus::complete));
  }
  /// Sound in blocks of 10 ms, from when it was first called on.
  void appendSoundUntil(MediaTime time) {
    if (!system) system.emplace(440, start), mic.emplace(880, start);
    while (mic->nextEnd() <= time) {
      const SampleBuffer systemBlock = system->nextBlock();
      const SampleBuffer micBlock = mic->nextBlock();
      if (sources.system) writer->appendAudio(systemBlock);
      if (sources.mic) writer->appendMicrophoneAudio(micBlock);
    }
  }
  /// Pictures so far apart, with sound, as time passes; ends early when the disk dies.
  void record(Duration length, MediaTime apart = frame) {
    const MediaTime end = world.dispatch.hostTime() + MediaTime::from(length);
    for (MediaTime at = world.dispatch.hostTime(); at < end; at = at + apart) {
      const Duration wait = (at - world.dispatch.hostTime()).toNanoseconds();
      if (world.dispatch.runUntil([&] { return world.files.isDead(); }, wait)) return;
      appendSoundUntil(at);
      appendPicture(at);
    }
    world.dispatch.runUntil([&] { return world.files.isDead(); }, 10ms);
  }
  Result<void> finish() { return await(writer->finishRecording()); }

  const SimSegmentedMovie& movie() { return world.mediaWriters.lastSegmentedMovie(); }
  const AudioSources sources;
  MediaTime start = world.dispatch.hostTime();
  std::optional<SimTone> system;
  std::optional<SimTone> mic;
  std::unique_ptr<VideoChunkWriter> writer;
};

TEST(VideoChunkWriter, uploadsItsSegmentsInOrderWhateverIsRecorded) {
  struct Case {
    AudioSources sources;
    MediaTime apart;
    std::size_t tracks;
  };
  const MediaTime still(1, 1);
  for (const Case& one : {Case{{}, frame, 2}, Case{{}, still, 2}, Case{{.system = false}, frame, 2},
                          Case{{.system = false, .mic = false}, still, 1}}) {
    WriterWorld w(one.sources);
    w.record(25s, one.apart);
    EXPECT_EQ(w.backups(), 1u);
    ASSERT_TRUE(w.finish());
    EXPECT_EQ(w.movie().segments.size(), 4u) << "an initialization, two whole intervals and the rest";
    EXPECT_EQ(w.movie().content.tracks.size(), one.tracks);
    EXPECT_EQ(w.upload->received, w.delivered());
    EXPECT_EQ(w.backups(), 0u);
    EXPECT_EQ(w.movie().movie->status, AssetWriter::Status::completed);
    if (one.tracks == 1) continue;
    const auto& sound = w.movie().content.sound(0)->samples;
    EXPECT_NEAR((sound.back().presentationTime() + sound.back().duration()).seconds(), 25, one.apart.seconds() + 0.03);
  }
}

TEST(VideoChunkWriter, bothOutputsBeginWithTheFirstPictureAndEndWithTheLast) {
  WriterWorld w;
  w.appendSoundUntil(w.start);
  w.world.dispatch.advance(300ms);
  w.appendSoundUntil(w.world.dispatch.hostTime());
  w.record(2s);
  ASSERT_TRUE(w.finish());
  for (const SimMovie* movie : {&w.movie().content, static_cast<const SimMovie*>(w.movie().movie.get())}) {
    EXPECT_EQ(movie->sessionStart, MediaTime::zero());
    EXPECT_EQ(movie->sessionEnd, movie->pictures()->samples.back().presentationTime());
    EXPECT_EQ(movie->pictures()->samples.size(), 48u);
    EXPECT_EQ(movie->pictures()->samples.front().presentationTime(), MediaTime::zero());
    EXPECT_EQ(movie->sound(0)->samples.size(), (48'000 * 2300 / 1000 - 2000) / 1024u) << "with the 0.3 s before it";
  }
  EXPECT_EQ(w.upload->opened->localBackupPath, localFile);
}

TEST(VideoChunkWriter, endsThroughTheUploadWhenNothingWasWritten) {
  enum class Reason { noPicture, noDelegate, refusal };
  for (const Reason reason : {Reason::noPicture, Reason::noDelegate, Reason::refusal}) {
    WriterWorld w;
    if (reason == Reason::noDelegate) w.writer->setUploadDelegate(nullptr);
    if (reason == Reason::refusal) {
      w.world.mediaWriters.refuseNextStart(AssetWriterError::cannotEncode);
      w.record(1s);
    }
    w.appendSoundUntil(w.start + MediaTime(2, 1));
    const auto finished = w.finish();
    EXPECT_EQ(finished.has_value(), reason != Reason::noDelegate);
    EXPECT_TRUE(finished || finished.error().is(VideoChunkError::uploadDelegateNotSet));
    EXPECT_EQ(w.upload->completions, reason == Reason::noDelegate ? 0 : 1);
    EXPECT_FALSE(w.upload->opened);
    EXPECT_THAT(w.upload->partSizes, IsEmpty());
  }
}

TEST(VideoChunkWriter, keepsTheBackupWhenTheWriterFailedUnderway) {
  WriterWorld w;
  w.record(12s);
  w.world.mediaWriters.fail(w.world.mediaWriters.lastSegmentedMovie().content, AssetWriterError::cannotEncode);
  w.record(5s);
  std::ignore = w.finish();
  EXPECT_EQ(w.backups(), 1u) << "the service has less than was recorded";
}

TEST(VideoChunkWriter, picturesStillOnTheirWayWhenItEndsAreRecorded) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    WriterWorld w({}, seed);
    for (const int at : {0, 1, 2}) w.appendPicture(w.start + MediaTime(at, 24));
    ASSERT_TRUE(w.finish());
    ASSERT_EQ(w.movie().segments.size(), 2u) << seed;
    EXPECT_EQ(w.upload->received, w.delivered()) << seed;
    EXPECT_EQ(w.backups(), 0u) << seed;
  }
}

TEST(VideoChunkWriter, finishesOnDiskAloneWhenTheProcessMustEnd) {
  for (const auto last :
       {SimSegmentScript::Last::inTime, SimSegmentScript::Last::late, SimSegmentScript::Last::never}) {
    WriterWorld w;
    w.upload->holdsAnswers = true;
    w.world.mediaWriters.setSegmentScript({.mediaSize = 6'000'000, .last = last});
    w.record(25s);
    const MediaTime before = w.world.dispatch.hostTime();
    ASSERT_TRUE(w.await(w.writer->finishWithoutUpload()));
    EXPECT_LE(w.world.dispatch.hostTime() - before, MediaTime(21, 10));
    w.writer.reset();
    EXPECT_EQ(w.movie().segments.size(), last == SimSegmentScript::Last::never ? 3u : 4u);
    EXPECT_EQ(w.recovered(), w.delivered());
    EXPECT_EQ(w.movie().movie->status, AssetWriter::Status::completed);
  }
}

TEST(VideoChunkWriter, handsNothingOverOnceTheProcessEnds) {
  for (const bool isOpen : {true, false}) {
    WriterWorld w;
    w.upload->holdsAnswers = !isOpen;
    w.record(19s);
    const std::size_t parts = w.upload->partSizes.size();
    w.ChunkWorld::start(w.writer->finishWithoutUpload());
    w.upload->answerAll();
    w.world.dispatch.advance(3s);
    EXPECT_TRUE(w.outcome && *w.outcome);
    EXPECT_EQ(w.movie().segments.size(), 3u) << "the last one would have filled a part";
    EXPECT_EQ(w.upload->partSizes.size(), parts);
    w.writer.reset();
    EXPECT_EQ(w.recovered(), w.delivered());
  }
}

TEST(VideoChunkWriter, doesNotWaitForASegmentBehindTheLastPicture) {
  for (const int halfSeconds : {20, 21}) {
    WriterWorld w({.system = false, .mic = false});
    w.record(500ms * (halfSeconds + 1), MediaTime(1, 2));
    const MediaTime before = w.world.dispatch.hostTime();
    ASSERT_TRUE(w.finish());
    EXPECT_LT(w.world.dispatch.hostTime() - before, MediaTime(1, 1));
    EXPECT_EQ(w.movie().segments.size(), halfSeconds == 20 ? 2u : 3u);
    EXPECT_EQ(w.upload->received, w.delivered());
  }
}

TEST(VideoChunkWriter, whateverTheStepAtWhichThePowerGoesNothingIsLostThatWasTakenIn) {
  int recoveries = 0;
  for (std::uint64_t step = 1;; ++step) {
    WriterWorld w({.system = false, .mic = false}, step);
    w.world.files.dieAtStep(step);
    w.record(12s, MediaTime(1, 2));
    if (!w.world.files.isDead()) std::ignore = w.finish();
    const bool died = w.world.files.isDead();
    const Bytes delivered = w.delivered();
    const std::size_t takenIn = w.delivered(w.log("Buffered segment #").size()).size();
    w.world.die();
    w.writer.reset();
    w.world.restart(PowerCut::tearUnsynced);

    const Bytes recovered = w.recovered();
    EXPECT_TRUE(std::ranges::equal(recovered, delivered | std::views::take(recovered.size()))) << step;
    EXPECT_TRUE(std::ranges::equal(w.upload->received, delivered | std::views::take(w.upload->received.size())))
        << step;
    if (w.upload->completions > 0) {
      EXPECT_EQ(w.upload->received, delivered) << step;
    } else if (takenIn > 2'000) {  // more than the initialization
      EXPECT_GE(recovered.size(), takenIn) << step;
      ++recoveries;
    }
    if (!died) break;
  }
  EXPECT_GT(recoveries, 5);
}

}  // namespace
}  // namespace quillbeam
