#include <algorithm>

#include "base/Mutex.h"
#include "base/TaskScope.h"
#include "platform/linux/ffmpeg/FfmpegMediaWriters.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/sim/SimFiles.h"
#include "platform/sim/SimMediaWriters.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

constexpr VideoSettings video{160, 96, 200'000, 15, 36, true, 0.8};
constexpr AudioSettings audio{48'000, 2, 96'000, 64};

/// Grey, all three planes in one piece of memory.
class GrayPicture final : public PixelBuffer {
 public:
  explicit GrayPicture(int width) : width_(width), bytes_(static_cast<std::size_t>(width) * 96, 128) {}
  int width() const override { return width_; }
  int height() const override { return 96; }
  Plane y() const override { return {bytes_.data(), width_}; }
  Plane u() const override { return {bytes_.data(), width_ / 2}; }
  Plane v() const override { return u(); }

 private:
  int width_;
  std::vector<std::uint8_t> bytes_;
};

SampleBuffer pictureAt(MediaTime time, int width = 160) {
  return SampleBuffer::video(std::make_shared<GrayPicture>(width), {MediaTime(1, 24), time, MediaTime::invalid()},
                             FrameStatus::complete);
}

SampleBuffer soundAt(MediaTime time, int frames = 480) {
  auto block = std::make_shared<AudioBlock>();
  block->samples.resize(static_cast<std::size_t>(frames) * 2);
  return SampleBuffer::audio(std::move(block), time);
}

class MediaWritersConformance : public ConformanceTest {
 protected:
  MediaWritersConformance() {
    if (isSim()) {
      directory_ = "/recordings";
      files_ = std::make_unique<SimFiles>(dispatch());
      writers_ = std::make_unique<SimMediaWriters>(dispatch(), *files_);
      EXPECT_TRUE(files_->createDirectories(directory_));
    } else {
      directory_ = realDirectory_.path();
      files_ = std::make_unique<PosixFiles>();
      writers_ = std::make_unique<FfmpegMediaWriters>();
    }
    path_ = directory_ + "/movie.mp4";
  }

  struct Movie {
    std::unique_ptr<AssetWriter> writer;
    AssetWriterInput* pictures = nullptr;
    AssetWriterInput* sound = nullptr;
  };

  Movie begin() {
    Movie movie{*writers_->makeMovieWriter(path_, MovieFileType::mpeg4, NetworkUse::optimized)};
    movie.pictures = movie.writer->addVideoInput(video);
    movie.sound = movie.writer->addAudioInput(audio);
    EXPECT_EQ(movie.writer->status(), AssetWriter::Status::unknown);
    EXPECT_TRUE(movie.writer->startWriting());
    movie.writer->startSession(MediaTime::zero());
    return movie;
  }

  void record(Movie& movie, int seconds) {
    for (int i = 0; i < 24 * seconds; ++i) {
      const auto ready = [&] {
        return movie.pictures->isReadyForMoreMediaData() && movie.sound->isReadyForMoreMediaData();
      };
      ASSERT_TRUE(world().waitUntil(ready));
      ASSERT_TRUE(movie.pictures->append(pictureAt(MediaTime(i, 24))));
      ASSERT_TRUE(movie.sound->append(soundAt(MediaTime(i, 24), 2000)));
    }
  }

  Result<void> finish(AssetWriter& writer) {
    std::optional<Result<void>> result;
    TaskScope scope(dispatch().main());
    scope.start(writer.finishWriting(), [&](Result<void> done) { result = std::move(done); });
    EXPECT_TRUE(world().waitUntil([&] { return result.has_value(); }));
    return result.value_or(Result<void>(CommonError::cancelled));
  }

  TestDirectory realDirectory_;
  Path directory_;
  Path path_;
  std::unique_ptr<Files> files_;
  std::unique_ptr<MediaWriters> writers_;
};
QB_ON_BOTH_WORLDS(MediaWritersConformance);

TEST_P(MediaWritersConformance, aFinishedMovieIsCompleteAndNeedsNoRepair) {
  Movie movie = begin();
  record(movie, 2);
  movie.writer->endSession(MediaTime(2, 1));
  ASSERT_TRUE(finish(*movie.writer));
  EXPECT_EQ(movie.writer->status(), AssetWriter::Status::completed);
  EXPECT_FALSE(movie.writer->error());
  EXPECT_EQ(movie.writer->bytesWritten(), files_->info(path_)->size);
  EXPECT_FALSE(movie.pictures->append(pictureAt(MediaTime(3, 1))));
  EXPECT_TRUE(finish(*movie.writer)) << "finishing twice is finishing once";
  const auto report = writers_->repair(path_);
  ASSERT_TRUE(report);
  EXPECT_TRUE(report->wasComplete);
  EXPECT_NEAR(report->duration.seconds(), 2, 0.05);
}

TEST_P(MediaWritersConformance, inputsTakeOnlyWhatTheyCanPlaceOnTheTimeline) {
  const auto writer = *writers_->makeMovieWriter(path_, MovieFileType::mpeg4, NetworkUse::notOptimized);
  AssetWriterInput& pictures = *writer->addVideoInput(video);
  EXPECT_EQ(writer->addVideoInput(video), nullptr) << "one track of pictures";
  ASSERT_TRUE(writer->startWriting());
  EXPECT_FALSE(pictures.append(pictureAt(MediaTime::zero()))) << "no session";

  writer->startSession(MediaTime::zero());
  EXPECT_TRUE(pictures.append(pictureAt(MediaTime(5, 24))));
  EXPECT_FALSE(pictures.append(pictureAt(MediaTime(5, 24)))) << "times must rise";
  EXPECT_FALSE(pictures.append(pictureAt(MediaTime(4, 24))));
  EXPECT_FALSE(pictures.append(pictureAt(MediaTime(6, 24), 320))) << "another size";
  EXPECT_TRUE(pictures.append(pictureAt(MediaTime(7, 24))));
  pictures.markAsFinished();
  EXPECT_FALSE(pictures.append(pictureAt(MediaTime(8, 24))));
}

TEST_P(MediaWritersConformance, refusalsSayWhy) {
  const auto unreachable =
      writers_->makeMovieWriter(directory_ + "/missing/movie.mp4", MovieFileType::mpeg4, NetworkUse::optimized);
  ASSERT_FALSE(unreachable);
  EXPECT_TRUE(unreachable.error().is(AssetWriterError::cannotOpenFile));

  const auto late = *writers_->makeMovieWriter(path_, MovieFileType::mpeg4, NetworkUse::optimized);
  late->addAudioInput(audio);
  ASSERT_TRUE(files_->writeNew(path_, ByteChain(Bytes{1, 2, 3}), Durability::cached));
  EXPECT_TRUE(writers_->makeMovieWriter(path_, MovieFileType::mpeg4, NetworkUse::optimized)
                  .error()
                  .is(AssetWriterError::fileExists));
  EXPECT_FALSE(late->startWriting()) << "a file that appeared meanwhile is not overwritten";
  EXPECT_EQ(late->status(), AssetWriter::Status::failed);
  EXPECT_TRUE(late->error()->is(AssetWriterError::fileExists));
  EXPECT_EQ(files_->read(path_).value(), (Bytes{1, 2, 3}));

  EXPECT_TRUE(writers_->repair(path_).error().is(AssetWriterError::notRecoverable));
  EXPECT_TRUE(writers_->repair(directory_ + "/nowhere.mp4").error().is(AssetWriterError::cannotOpenFile));
}

TEST_P(MediaWritersConformance, aMovieLeftUnfinishedIsRepairedOnce) {
  {
    Movie movie = begin();
    const std::int64_t empty = movie.writer->bytesWritten();
    record(movie, 5);
    const auto written = [&] { return movie.writer->bytesWritten() > empty + 4000; };
    EXPECT_TRUE(isSim() || world().waitUntil(written));
  }
  const auto report = writers_->repair(path_);
  ASSERT_TRUE(report) << report.error().fullDescription();
  EXPECT_FALSE(report->wasComplete);
  EXPECT_GE(report->duration.seconds(), 0.9);
  const auto again = writers_->repair(path_);
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->wasComplete);
  EXPECT_EQ(again->duration, report->duration);
}

constexpr VideoSettings orderedVideo{160, 96, 200'000, 24, 48, false, 0};

class SegmentWriterConformance : public MediaWritersConformance {
 protected:
  struct Recording : Movie {
    SegmentWriter* segments = nullptr;
  };

  Recording beginSegments(Path movieFile) {
    const auto take = [this](Segment segment) {
      MutexLock lock(mutex_);
      onMain_ = onMain_ || dispatch().main().isCurrent();
      delivered_.push_back(std::move(segment));
    };
    Recording recording;
    auto writer = *writers_->makeSegmentWriter({MediaTime(1, 1), take, std::move(movieFile)});
    recording.segments = writer.get();
    recording.writer = std::move(writer);
    recording.pictures = recording.writer->addVideoInput(orderedVideo);
    recording.sound = recording.writer->addAudioInput(audio);
    EXPECT_TRUE(recording.writer->startWriting());
    recording.writer->startSession(MediaTime::zero());
    return recording;
  }

  std::vector<Segment> delivered() {
    MutexLock lock(mutex_);
    EXPECT_FALSE(onMain_) << "segments come on the writer's own thread";
    return delivered_;
  }
  void expectSegmentsOfTwoAndAHalfSeconds() {
    const auto segments = delivered();
    ASSERT_EQ(segments.size(), 4u);
    EXPECT_EQ(segments[0].kind, SegmentKind::initialization);
    EXPECT_FALSE(segments[0].report);
    for (int i = 0; i < 3; ++i) {
      const Segment& segment = segments[i + 1];
      EXPECT_EQ(segment.kind, SegmentKind::separable);
      ASSERT_TRUE(segment.report);
      ASSERT_EQ(segment.report->trackReports.size(), 2u);
      const auto& pictures = segment.report->trackReports[0];
      EXPECT_EQ(toText(pictures.mediaType), "vide");
      EXPECT_EQ(pictures.earliestPresentationTime, MediaTime(i, 1));
      EXPECT_EQ(pictures.firstVideoSamplePresentationTime, MediaTime(i, 1));
      EXPECT_EQ(pictures.duration, i < 2 ? MediaTime(1, 1) : MediaTime(1, 2));
      const auto& sound = segment.report->trackReports[1];
      EXPECT_EQ(toText(sound.mediaType), "soun");
      EXPECT_NEAR(sound.earliestPresentationTime.seconds(), i, 0.05);
      EXPECT_FALSE(sound.firstVideoSamplePresentationTime);
    }
  }

 private:
  Mutex mutex_;
  std::vector<Segment> delivered_ GUARDED_BY(mutex_);
  bool onMain_ GUARDED_BY(mutex_) = false;
};
QB_ON_BOTH_WORLDS(SegmentWriterConformance);

TEST_P(SegmentWriterConformance, segmentsComeInOrderTheLastBeforeFinishingEndsBesideAnOrdinaryMovie) {
  Recording recording = beginSegments(path_);
  record(recording, 3);
  EXPECT_TRUE(world().waitUntil([&] { return delivered().size() >= 3; })) << "segments come while it is writing";
  recording.writer->endSession(MediaTime(5, 2));
  ASSERT_TRUE(finish(*recording.writer));
  EXPECT_EQ(recording.writer->status(), AssetWriter::Status::completed);
  expectSegmentsOfTwoAndAHalfSeconds();
  std::int64_t bytes = 0;
  for (const Segment& segment : delivered()) bytes += static_cast<std::int64_t>(segment.bytes.size());
  EXPECT_EQ(recording.writer->bytesWritten(), bytes);
  EXPECT_FALSE(recording.segments->movieError());
  EXPECT_EQ(recording.segments->movieBytesWritten(), files_->info(path_)->size);
  const auto report = writers_->repair(path_);
  ASSERT_TRUE(report);
  EXPECT_TRUE(report->wasComplete);
  EXPECT_NEAR(report->duration.seconds(), 2.5, 0.05);
}

TEST_P(SegmentWriterConformance, aMovieFileThatFailsLeavesTheSegmentsAlone) {
  ASSERT_TRUE(files_->writeNew(path_, ByteChain(Bytes{1, 2, 3}), Durability::cached));
  Recording recording = beginSegments(path_);
  ASSERT_TRUE(recording.segments->movieError());
  EXPECT_TRUE(recording.segments->movieError()->is(AssetWriterError::fileExists));
  record(recording, 3);
  recording.writer->endSession(MediaTime(5, 2));
  ASSERT_TRUE(finish(*recording.writer));
  EXPECT_FALSE(recording.writer->error());
  expectSegmentsOfTwoAndAHalfSeconds();
  EXPECT_EQ(recording.segments->movieBytesWritten(), 0);
  EXPECT_EQ(files_->read(path_).value(), (Bytes{1, 2, 3}));
}

TEST_P(SegmentWriterConformance, cancellingRemovesTheFileAndNothingComesAfterItOrWithoutSamples) {
  Recording cancelled = beginSegments(path_);
  record(cancelled, 2);
  cancelled.writer->cancelWriting();
  const std::size_t before = delivered().size();
  EXPECT_EQ(cancelled.writer->status(), AssetWriter::Status::cancelled);
  EXPECT_FALSE(files_->exists(path_));
  EXPECT_FALSE(cancelled.sound->append(soundAt(MediaTime(9, 1))));
  EXPECT_FALSE(finish(*cancelled.writer));
  Recording empty = beginSegments(path_);
  EXPECT_TRUE(finish(*empty.writer));
  EXPECT_EQ(delivered().size(), before);
}

}  // namespace
}  // namespace quillbeam
