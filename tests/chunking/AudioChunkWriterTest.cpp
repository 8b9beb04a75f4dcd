#include "chunking/AudioChunkWriter.h"

#include <cmath>

#include "chunking/AudioChunkError.h"
#include "chunking/ChunkWorld.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::FloatNear;
using testing::IsEmpty;

constexpr std::size_t part = 5'242'880;
constexpr AudioSources onlyMic{.system = false, .mic = true};
const Error refused("Test", 1, "no");

/// Every sample different from its neighbours, so that one that is early, late, lost or doubled is seen.
float toneAt(std::int64_t frame) { return 0.5F * static_cast<float>(std::sin(static_cast<double>(frame) * 0.1305)); }

struct AudioWorld : ChunkWorld {
  explicit AudioWorld(AudioSources sources = {}, std::size_t segmentSize = 2'000'000) {
    world.mediaWriters.setSegmentScript({.mediaSize = segmentSize});
    writer = std::make_unique<AudioChunkWriter>(
        platform, stored, notifications,
        AudioChunkWriter::Options{.recording = {"team", "folder", "Weekly"}, .sources = sources});
    writer->setUploadDelegate(upload);
  }

  void append(AudioSource source, SampleBuffer sample) {
    if (source == AudioSource::system) {
      writer->appendAudio(std::move(sample));
    } else {
      writer->appendMicrophoneAudio(std::move(sample));
    }
    world.dispatch.runUntilIdle();
  }
  /// `frames` of the tone from its frame `from` on.
  void appendTone(AudioSource source, MediaTime time, std::int64_t from, std::int64_t frames) {
    auto block = std::make_shared<AudioBlock>(AudioBlock{.channels = 1});
    for (std::int64_t at = from; at < from + frames; ++at) block->samples.push_back(toneAt(at));
    append(source, SampleBuffer::audio(std::move(block), time));
  }
  /// Sound of those sources, in blocks of 10 ms, as time passes.
  void record(Duration length, AudioSources sources) {
    const MediaTime end = world.dispatch.hostTime() + MediaTime::from(length);
    while (world.dispatch.hostTime() < end) {
      const MediaTime now = world.dispatch.hostTime();
      if (sources.system) appendTone(AudioSource::system, now, 0, 480);
      if (sources.mic) appendTone(AudioSource::mic, now, 0, 480);
      world.dispatch.advance(10ms);
    }
  }
  Result<void> finish() { return await(writer->finishRecording()); }
  const SimMovie& movie() { return world.mediaWriters.lastSegmentedMovie().content; }
  std::vector<float> mix() {
    std::vector<float> samples;
    for (const SampleBuffer& block : movie().sound(0)->samples) {
      EXPECT_EQ(block.presentationTime(), MediaTime(static_cast<std::int64_t>(samples.size()), 48'000));
      samples.insert(samples.end(), block.block()->samples.begin(), block.block()->samples.end());
    }
    return samples;
  }

  const MediaTime firstTime = world.dispatch.hostTime();
  std::unique_ptr<AudioChunkWriter> writer;
};

TEST(AudioChunkWriter, uploadsItsSegmentsAndCountsTheMediaAlone) {
  AudioWorld w;
  w.record(250ms, {});
  EXPECT_FALSE(w.upload->opened);
  w.record(100ms, {});
  ASSERT_TRUE(w.upload->opened);
  EXPECT_EQ(w.upload->opened->contentType, "audio/x-m4a");
  EXPECT_FALSE(w.upload->opened->localBackupPath);
  w.record(10650ms, {});

  ASSERT_EQ(w.backups(), 1u);
  const auto backup = w.stored.getIncompleteRecordings()[0];
  EXPECT_EQ(w.upload->opened->segmentBackupId, backup.id);
  EXPECT_EQ(backup.fileId, "file-1");
  EXPECT_EQ(backup.recordingType, SegmentBackupRecordingType::audioOnly);
  std::vector<std::int64_t> indexes;
  for (const FMP4SegmentInfo& segment : backup.segments) indexes.push_back(segment.index);
  EXPECT_THAT(indexes, testing::ElementsAre(-1, 0, 1));

  const MediaTime before = w.world.dispatch.hostTime();
  ASSERT_TRUE(w.finish());
  EXPECT_LT(w.world.dispatch.hostTime() - before, MediaTime(1, 1));
  EXPECT_EQ(w.upload->received, w.delivered());
  EXPECT_EQ(w.world.mediaWriters.lastSegmentedMovie().segments.size(), 4u);
  EXPECT_EQ(w.movie().sessionEnd, MediaTime(static_cast<std::int64_t>(w.mix().size()), 48'000));
  EXPECT_EQ(w.log("✅ Segment backup cleaned up after successful upload ").size(), 1u);
  EXPECT_EQ(w.backups(), 0u);
}

TEST(AudioChunkWriter, placesEachSourceByItsTimeFromTheFirstBufferOfEither) {
  struct Case {
    MediaTime system;         // from the microphone's first buffer, which comes first
    std::size_t frame = 0;    // of the mix, at which …
    std::int64_t sample = 0;  // … this one of the system's lies
  };
  const Case cases[] = {
      {MediaTime(1, 4), 12'000, 0},
      {MediaTime(1'000'999, 48'000'000), 1000, 0},  // not the nearest frame
      {MediaTime(-1, 4), 0, 12'000},                // no shift, whatever came too early is lost
      {MediaTime(-5, 1000), 0, 240},
  };
  for (const Case& one : cases) {
    AudioWorld w;
    w.append(AudioSource::mic,
             SampleBuffer::audio(std::make_shared<AudioBlock>(AudioBlock{.channels = 0}), w.firstTime));
    const MediaTime zero = w.firstTime + MediaTime(1, 8);  // what holds no sound is no beginning
    w.append(
        AudioSource::mic,
        SampleBuffer::audio(std::make_shared<AudioBlock>(AudioBlock{48'000, 1, std::vector<float>(48'000)}), zero));
    w.appendTone(AudioSource::system, zero + one.system, 1, 48'000);
    ASSERT_TRUE(w.finish());
    const auto mix = w.mix();
    ASSERT_GT(mix.size(), one.frame + 1000);
    EXPECT_EQ(mix[one.frame], 0.4F * toneAt(1 + one.sample)) << one.system.seconds();
    EXPECT_TRUE(one.frame == 0 || mix[one.frame - 1] == 0) << one.system.seconds();
  }
}

TEST(AudioChunkWriter, contiguousBuffersStayContiguousWhoeverRoundedTheirTimes) {
  for (const bool areRounded : {true, false}) {
    AudioWorld w(onlyMic);
    for (std::int64_t at = 0; at < 20 * 48'000; at += 1024) {
      const MediaTime time(48'000'000 + at, 48'000);
      w.appendTone(AudioSource::mic, areRounded ? time.rescaled(1'000'000'000) : time, at, 1024);
    }
    ASSERT_TRUE(w.finish());
    const auto mix = w.mix();
    ASSERT_GE(mix.size(), 19 * 48'000u);
    std::size_t same = 0;
    while (same < mix.size() && mix[same] == toneAt(static_cast<std::int64_t>(same))) ++same;
    EXPECT_EQ(same, mix.size());
  }
}

TEST(AudioChunkWriter, waitsForAMissingMicrophoneButNotForOneThatIsSwitchedOff) {
  for (const AudioSources expected : {AudioSources{}, AudioSources{.system = true, .mic = false}}) {
    AudioWorld w(expected);
    w.record(6s, {.system = true, .mic = false});
    EXPECT_EQ(w.mix().empty(), expected.mic);
    ASSERT_TRUE(w.finish());
    EXPECT_EQ(w.mix().size(), 6 * 48'000u / 1024 * 1024);
    EXPECT_EQ(w.upload->received, w.delivered());
  }
}

TEST(AudioChunkWriter, endsThroughTheUploadWhenNothingWasWritten) {
  enum class Reason { noSound, noDelegate, refusal };
  for (const Reason reason : {Reason::noSound, Reason::noDelegate, Reason::refusal}) {
    AudioWorld w;
    if (reason == Reason::noDelegate) w.writer->setUploadDelegate(nullptr);
    if (reason == Reason::refusal) {
      w.world.mediaWriters.refuseNextStart(AssetWriterError::cannotEncode);
      w.record(1s, {});
      EXPECT_EQ(w.log("Failed to start writing: ").size(), 1u);
    }
    const auto finished = w.finish();
    EXPECT_EQ(finished.has_value(), reason != Reason::noDelegate);
    EXPECT_TRUE(finished || finished.error().is(AudioChunkError::uploadDelegateNotSet));
    EXPECT_EQ(w.upload->completions, reason == Reason::noDelegate ? 0 : 1);
    EXPECT_THAT(w.upload->partSizes, IsEmpty());
  }
}

TEST(AudioChunkWriter, aFailingDelegateCostsTheUploadButNothingOfTheRecording) {
  enum class Failure { opening, regularPart, finalPart, completion, missing };
  for (const Failure failure :
       {Failure::opening, Failure::regularPart, Failure::finalPart, Failure::completion, Failure::missing}) {
    AudioWorld w({}, part - 1200);
    if (failure == Failure::missing) w.writer->setUploadDelegate(nullptr);
    if (failure == Failure::opening) w.upload->openingError = refused;
    if (failure == Failure::regularPart) w.upload->partErrors.emplace(1, refused);
    if (failure == Failure::finalPart) w.upload->partErrors.emplace(2, refused);
    if (failure == Failure::completion) w.upload->completionError = refused;
    w.record(7s, {});
    const auto finished = w.finish();
    const bool endsAtOnce = failure != Failure::regularPart && failure != Failure::completion;
    EXPECT_EQ(w.upload->completions, endsAtOnce ? 0 : 1);
    EXPECT_EQ(finished.has_value(), failure == Failure::regularPart) << "the service is content, the backup is not";
    const std::string why = finished ? "" : finished.error().description();
    EXPECT_EQ(why, failure == Failure::missing       ? describe(AudioChunkError::uploadDelegateNotSet)
                   : failure == Failure::opening     ? "Upload failed: no"
                   : failure == Failure::regularPart ? ""
                                                     : "no");
    EXPECT_EQ(w.backups(), 1u);
    EXPECT_FALSE(w.errors().empty());
    EXPECT_EQ(w.recovered(), w.delivered());
  }
}

TEST(AudioChunkWriter, handsNothingOverOnceTheProcessEnds) {
  for (const bool isOpen : {true, false}) {
    AudioWorld w({}, part - 1200);
    w.upload->holdsAnswers = !isOpen;
    w.record(9s, {});
    const std::size_t parts = w.upload->partSizes.size();
    w.world.mediaWriters.setSegmentScript({.mediaSize = 2 * part});
    w.start(w.writer->finishWithoutUpload());
    w.upload->answerAll();
    w.world.dispatch.advance(1s);
    EXPECT_TRUE(w.outcome && *w.outcome);
    EXPECT_EQ(w.upload->partSizes.size(), parts);
    w.writer.reset();
    EXPECT_EQ(w.recovered(), w.delivered());
  }
}

}  // namespace
}  // namespace quillbeam
