#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "Demuxed.h"
#include "Programs.h"
#include "Recording.h"
#include "base/Mutex.h"
#include "platform/linux/ffmpeg/DetachedOutput.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

using namespace test;

constexpr double millisecond = 0.001;
constexpr double soundFrame = 1024.0 / 48'000;
const VideoSettings chunkVideo{320, 180, 2'000'000, 24, 48, false, 0};
const AudioSettings chunkSound{48'000, 1, 96'000, 64};

/// A screen and one mono sound track, cut into segments.
struct SegmentedRecording {
  explicit SegmentedRecording(MediaTime interval, std::optional<Path> movie = std::nullopt) {
    const auto take = [this](Segment segment) {
      MutexLock lock(mutex);
      segments.push_back(std::move(segment));
    };
    writer = *writers.makeSegmentWriter({interval, take, std::move(movie)});
    pictures = writer->addVideoInput(chunkVideo);
    sound = writer->addAudioInput(chunkSound);
    EXPECT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
  }

  void show(MediaTime time) {
    const auto step = static_cast<int>(time.seconds() * 24);
    ASSERT_TRUE(appendWhenReady(*pictures, pictureAt(movingPicture(320, 180, step), time, MediaTime(1, 24))));
  }
  /// Mixed sound comes in blocks of 1024.
  void soundUpTo(MediaTime time) {
    for (; MediaTime(soundPosition + 1024, 48'000) <= time; soundPosition += 1024) {
      ASSERT_TRUE(appendWhenReady(*sound, toneAt(soundPosition, 1024, 440, 48'000, 1)));
    }
  }
  /// Both, on the 1/24 s grid.
  void record(int frames) {
    for (int i = 0; i < frames; ++i) {
      show(MediaTime(i, 24));
      soundUpTo(MediaTime(i + 1, 24));
    }
  }
  Result<void> finish(MediaTime end) {
    writer->endSession(end);
    return waitFor(writer->finishWriting());
  }

  std::vector<Segment> taken() {
    MutexLock lock(mutex);
    return segments;
  }
  /// Whether so many come without anything else being done.
  bool waitForSegments(std::size_t count) {
    for (int wait = 0; wait < 1000 && taken().size() < count; ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return taken().size() >= count;
  }

  FfmpegMediaWriters writers;
  Mutex mutex;
  std::vector<Segment> segments GUARDED_BY(mutex);
  std::unique_ptr<SegmentWriter> writer;
  AssetWriterInput* pictures = nullptr;
  AssetWriterInput* sound = nullptr;
  std::int64_t soundPosition = 0;
};

class SegmentWriting : public testing::Test {
 protected:
  /// The segments from `first` on (before `end`), behind the initialization, as a player sees them.
  Demuxed play(const std::vector<Segment>& segments, std::size_t first, std::size_t end) {
    const Path path = directory_.path() + "/played.mp4";
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    const auto put = [&](const Segment& segment) {
      segment.bytes.forEach([&](ByteSpan bytes) {
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
      });
    };
    put(segments.front());
    for (std::size_t i = first; i < end; ++i) put(segments[i]);
    file.close();
    return demux(path);
  }

  /// What holds for every recording: one initialization in front, each media segment plays on its own behind it and its
  /// pictures start with a key frame, every prefix plays, and tracks go on without a gap where their reports say so.
  Demuxed expectWellCut(const std::vector<Segment>& segments) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(segments[i].kind, i == 0 ? SegmentKind::initialization : SegmentKind::separable);
      EXPECT_EQ(segments[i].report.has_value(), i > 0);
      if (i == 0) continue;
      const Demuxed alone = play(segments, i, i + 1);
      EXPECT_EQ(alone.complaint, "");
      EXPECT_TRUE(alone.video.packets.empty() || alone.video.packets.front().isKey);
      const Demuxed prefix = play(segments, 1, i + 1);
      EXPECT_EQ(prefix.complaint, "");
      EXPECT_EQ(prefix.video.frameTimes.size(), prefix.video.packets.size());
    }
    Demuxed whole = play(segments, 1, segments.size());
    for (std::size_t i = 1; i < whole.sound.packets.size(); ++i) {
      const double spacing = whole.sound.packets[i].time - whole.sound.packets[i - 1].time;
      if (std::abs(spacing - soundFrame) > 1e-5) ADD_FAILURE() << "sound jumps at " << whole.sound.packets[i].time;
    }
    return whole;
  }

  TestDirectory directory_;
};

const SegmentTrackReport& track(const Segment& segment, MediaType type) {
  for (const auto& report : segment.report->trackReports) {
    if (report.mediaType == type) return report;
  }
  static const SegmentTrackReport none;
  ADD_FAILURE() << "no " << toText(type) << " in the segment";
  return none;
}

TEST_F(SegmentWriting, cutsAtTheIntervalAndPlaysFromZeroWithoutAGap) {
  SegmentedRecording recording(MediaTime(1, 1));
  recording.record(85);
  EXPECT_TRUE(recording.waitForSegments(4)) << "a segment comes as soon as both tracks have passed its end";
  ASSERT_TRUE(recording.finish(MediaTime(84, 24)));
  const auto segments = recording.taken();
  ASSERT_EQ(segments.size(), 5u) << "the last one came before the finishing ended";

  MediaTime soundEnd = MediaTime::zero();
  for (std::size_t i = 1; i < segments.size(); ++i) {
    const auto& sound = track(segments[i], MediaType::audio);
    EXPECT_EQ(sound.earliestPresentationTime, soundEnd);
    soundEnd = sound.earliestPresentationTime + sound.duration;
  }
  const Demuxed whole = expectWellCut(segments);
  ASSERT_EQ(whole.video.frameTimes.size(), 84u);
  for (int i = 0; i < 84; ++i) EXPECT_NEAR(whole.video.frameTimes[i], i / 24.0, 1e-5);
  EXPECT_NEAR(whole.sound.begin(), 0, soundFrame + millisecond);
  EXPECT_NEAR(static_cast<double>(whole.sound.samples) / 48'000, 3.5, 2 * soundFrame);
}

TEST_F(SegmentWriting, theMovieFileBesideThemHoldsTheSamePackets) {
  const Path movie = directory_.path() + "/movie.mp4";
  SegmentedRecording recording(MediaTime(2, 1), movie);
  recording.record(121);
  ASSERT_TRUE(recording.finish(MediaTime(5, 1)));
  EXPECT_FALSE(recording.writer->movieError());
  EXPECT_EQ(static_cast<std::uintmax_t>(recording.writer->movieBytesWritten()), std::filesystem::file_size(movie));
  EXPECT_TRUE(recording.writers.repair(movie)->wasComplete);

  const auto segments = recording.taken();
  const Demuxed cut = play(segments, 1, segments.size());
  const Demuxed whole = demux(movie);
  EXPECT_EQ(whole.complaint, "");
  EXPECT_EQ(decodingErrors(movie), "");
  for (const double duration : numbersOf(probed(movie, "stream=duration"))) EXPECT_NEAR(duration, 5, millisecond);
  ASSERT_EQ(cut.video.packets.size(), 120u);
  const auto expectSame = [](const DemuxedTrack& a, const DemuxedTrack& b) {
    ASSERT_EQ(a.packets.size(), b.packets.size());
    for (std::size_t i = 0; i < a.packets.size(); ++i) {
      EXPECT_EQ(a.packets[i].content, b.packets[i].content) << "encoded twice";
      EXPECT_NEAR(a.packets[i].time, b.packets[i].time, 1e-5);
    }
  };
  expectSame(cut.video, whole.video);
  expectSame(cut.sound, whole.sound);
}

TEST_F(SegmentWriting, jitteringPicturesGoWhereTheirTimesLie) {
  std::mt19937 random(7);
  std::vector<MediaTime> times{MediaTime::zero()};
  for (int i = 1; i < 24 * 6; ++i) {
    if (random() % 5 != 0) times.push_back(MediaTime(i * 1000 + static_cast<int>(random() % 700), 24'000));
  }
  SegmentedRecording recording(MediaTime(1, 1));
  for (const MediaTime time : times) {
    recording.show(time);
    recording.soundUpTo(time);
  }
  ASSERT_TRUE(recording.finish(MediaTime(6, 1)));
  const auto segments = recording.taken();
  ASSERT_EQ(segments.size(), 7u);
  for (int i = 0; i < 6; ++i) {
    const auto isInside = [&](MediaTime time) { return time >= MediaTime(i, 1) && time < MediaTime(i + 1, 1); };
    const auto first = std::ranges::find_if(times, isInside);
    EXPECT_EQ(play(segments, i + 1, i + 2).video.packets.size(),
              static_cast<std::size_t>(std::ranges::count_if(times, isInside)));
    EXPECT_NEAR(track(segments[i + 1], MediaType::video).earliestPresentationTime.seconds(), first->seconds(), 2e-5);
  }
  const Demuxed whole = expectWellCut(segments);
  ASSERT_EQ(whole.video.frameTimes.size(), times.size());
  for (std::size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(whole.video.frameTimes[i], times[i].seconds(), 2e-5);
}

TEST_F(SegmentWriting, soundThatStartsLateOrNeverHoldsNothingUpForLong) {
  SegmentedRecording late(MediaTime(1, 1));
  late.soundPosition = 72 * 1024;
  late.record(72);
  ASSERT_TRUE(late.finish(MediaTime(3, 1)));
  const Demuxed filled = expectWellCut(late.taken());
  EXPECT_NEAR(filled.sound.begin(), 0, soundFrame + millisecond);
  EXPECT_NEAR(filled.sound.end(), 3, 2 * soundFrame);
  EXPECT_EQ(filled.video.frameTimes.size(), 72u);

  SegmentedRecording missing(MediaTime(1, 1));
  for (int i = 0; i < 24 * 8; ++i) missing.show(MediaTime(i, 24));
  EXPECT_TRUE(missing.waitForSegments(3)) << "nothing was cut while sound was missing";
  ASSERT_TRUE(missing.finish(MediaTime(8, 1)));
  const auto segments = missing.taken();
  EXPECT_EQ(segments.size(), 9u);
  const Demuxed silent = expectWellCut(segments);
  EXPECT_EQ(silent.video.begin(), 0);
  EXPECT_EQ(silent.video.frameTimes.size(), 192u);
}

TEST_F(SegmentWriting, picturesThatFallFarBehindComeInWholeGroupsLater) {
  SegmentedRecording recording(MediaTime(2, 1));
  for (int i = 0; i < 30; ++i) recording.show(MediaTime(i, 24));
  recording.soundUpTo(MediaTime(11, 1));
  EXPECT_TRUE(recording.waitForSegments(2)) << "the sound is delivered although no pictures come";
  for (int i = 11 * 24; i < 12 * 24; ++i) recording.show(MediaTime(i, 24));
  recording.soundUpTo(MediaTime(12, 1));
  ASSERT_TRUE(recording.finish(MediaTime(12, 1)));
  const Demuxed whole = expectWellCut(recording.taken());
  ASSERT_EQ(whole.video.frameTimes.size(), 54u);
  EXPECT_NEAR(whole.video.frameTimes[30], 11, 1e-5);
  EXPECT_NEAR(whole.sound.end(), 12, 2 * soundFrame);
}

/// A movie file whose disk stalls.
class StubbornOutput final : public PacketOutput {
 public:
  explicit StubbornOutput(WorkSignal& gate) : gate_(gate) {}
  void push(std::size_t, EncodedPacket) override {}
  void endTrack(std::size_t, std::optional<MediaTime>) override {}
  void cutTrack(std::size_t, MediaTime) override {}
  Result<bool> write() override {
    gate_.wait();
    return true;
  }
  Result<void> finish(std::optional<MediaTime>) override { return success; }
  void salvage(std::optional<MediaTime>) override {}
  void discard() override {}

 private:
  WorkSignal& gate_;
};

EncodedPacket packetOf(int size) {
  AvOwned<AVPacket> packet(av_packet_alloc());
  av_new_packet(packet.get(), size);
  return {std::shared_ptr<const AVPacket>(std::move(packet)), 0, 0, 1, true};
}

TEST(DetachedOutputs, takeWhatComesWhileTheirDiskStallsUntilItIsTooMuch) {
  WorkSignal gate;
  DetachedOutput output(std::make_unique<StubbornOutput>(gate), DetachedOutput::Failures::kept, 10'000);
  for (int i = 0; i < 300; ++i) {
    output.push(0, packetOf(100));
    EXPECT_TRUE(output.write());
  }
  EXPECT_FALSE(output.error()) << "it must not wait for the disk";
  gate.raise();
  for (int wait = 0; wait < 1000 && !output.error(); ++wait) {
    gate.raise();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(output.error());
  EXPECT_TRUE(output.error()->is(AssetWriterError::writeFailed));
}

}  // namespace
}  // namespace quillbeam
