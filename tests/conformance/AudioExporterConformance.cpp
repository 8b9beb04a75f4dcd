#include <algorithm>

#include "base/TaskScope.h"
#include "platform/linux/ffmpeg/FfmpegAudioExporter.h"
#include "platform/linux/ffmpeg/FfmpegMediaWriters.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/sim/SimAudioExporter.h"
#include "platform/sim/SimFiles.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

constexpr AudioSettings sound{48'000, 2, 96'000, 64};
using Status = AudioExport::Status;

class AudioExporterConformance : public ConformanceTest {
 protected:
  AudioExporterConformance() {
    if (isSim()) {
      directory_ = "/recordings";
      files_ = std::make_unique<SimFiles>(dispatch());
      auto writers = std::make_unique<SimMediaWriters>(dispatch(), *files_);
      exporter_ = std::make_unique<SimAudioExporter>(dispatch(), *files_, *writers);
      writers_ = std::move(writers);
      EXPECT_TRUE(files_->createDirectories(directory_));
    } else {
      directory_ = realDirectory_.path();
      files_ = std::make_unique<PosixFiles>();
      writers_ = std::make_unique<FfmpegMediaWriters>();
      exporter_ = std::make_unique<FfmpegAudioExporter>();
    }
    source_ = directory_ + "/tracks.m4a";
    output_ = directory_ + "/mix.m4a";
  }

  /// A file with a track of silence per length.
  void record(const std::vector<int>& seconds) {
    const auto writer = *writers_->makeMovieWriter(source_, MovieFileType::appleM4A, NetworkUse::optimized);
    std::vector<AssetWriterInput*> inputs;
    for (std::size_t i = 0; i < seconds.size(); ++i) inputs.push_back(writer->addAudioInput(sound));
    ASSERT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
    auto block = std::make_shared<AudioBlock>();
    block->samples.resize(std::size_t{4800} * 2);
    for (int i = 0; i < 10 * std::ranges::max(seconds); ++i) {
      for (std::size_t track = 0; track < seconds.size(); ++track) {
        if (i >= 10 * seconds[track]) continue;
        ASSERT_TRUE(world().waitUntil([&] { return inputs[track]->isReadyForMoreMediaData(); }));
        ASSERT_TRUE(inputs[track]->append(SampleBuffer::audio(block, MediaTime(i, 10))));
      }
    }
    ASSERT_TRUE(finish(writer->finishWriting()));
  }

  Result<void> finish(Task<void> task, const std::function<void()>& meanwhile = [] {}) {
    std::optional<Result<void>> result;
    TaskScope scope(dispatch().main());
    scope.start(std::move(task), [&](Result<void> done) { result = std::move(done); });
    meanwhile();
    EXPECT_TRUE(world().waitUntil([&] { return result.has_value(); }));
    return result.value_or(Result<void>(CommonError::unsupported));
  }

  std::vector<std::string> names() { return files_->list(directory_).value(); }

  TestDirectory realDirectory_;
  Path directory_;
  Path source_;
  Path output_;
  std::unique_ptr<Files> files_;
  std::unique_ptr<MediaWriters> writers_;
  std::unique_ptr<AudioExporter> exporter_;
};
QB_ON_BOTH_WORLDS(AudioExporterConformance);

TEST_P(AudioExporterConformance, listsTheTracksOfFilesThatPlay) {
  record({2, 1});
  const auto tracks = exporter_->audioTracks(source_);
  ASSERT_TRUE(tracks) << tracks.error().fullDescription();
  ASSERT_EQ(tracks->size(), 2u);
  EXPECT_NEAR((*tracks)[0].duration.seconds(), 2, 0.03);
  EXPECT_NEAR((*tracks)[1].duration.seconds(), 1, 0.03);
  EXPECT_EQ((*tracks)[1].sampleRate, 48'000);
  EXPECT_EQ((*tracks)[1].channels, 2);

  const auto missing = exporter_->audioTracks(directory_ + "/missing.m4a");
  ASSERT_FALSE(missing);
  EXPECT_TRUE(missing.error().is(AudioExporterError::cannotRead));
  EXPECT_NE(missing.error().underlying(), nullptr);
  ASSERT_TRUE(files_->writeNew(output_, ByteChain(Bytes(5000, 7)), Durability::cached));
  EXPECT_TRUE(exporter_->audioTracks(output_).error().is(AudioExporterError::cannotRead));
}

TEST_P(AudioExporterConformance, aMixIsAsLongAsItsLongestTrackAndReplacesWhatWasThere) {
  record({1, 3});
  ASSERT_TRUE(files_->writeNew(output_, ByteChain(Bytes{1, 2, 3}), Durability::cached));
  const auto mixing = exporter_->makeExport({source_, {{0, 1.0}, {1, 2.5}}, output_});
  EXPECT_EQ(mixing->status(), Status::unknown);
  const auto mixed = finish(mixing->run(), [&] { EXPECT_NE(mixing->status(), Status::unknown); });
  ASSERT_TRUE(mixed) << mixed.error().fullDescription();
  EXPECT_EQ(mixing->status(), Status::completed);
  EXPECT_EQ(mixing->progress(), 1);
  EXPECT_FALSE(mixing->error());

  const auto tracks = exporter_->audioTracks(output_);
  ASSERT_TRUE(tracks);
  ASSERT_EQ(tracks->size(), 1u);
  EXPECT_NEAR(tracks->front().duration.seconds(), 3, 0.03);
  EXPECT_EQ(tracks->front().sampleRate, 48'000);
  EXPECT_EQ(tracks->front().channels, 2);
  EXPECT_EQ(names(), (std::vector<std::string>{"mix.m4a", "tracks.m4a"}));
}

TEST_P(AudioExporterConformance, aFailureSaysWhyAndLeavesEverythingAsItWas) {
  record({1, 1});
  ASSERT_TRUE(files_->writeNew(output_, ByteChain(Bytes{1, 2, 3}), Durability::cached));
  const auto before = names();
  const std::vector<std::pair<AudioMix, AudioExporterError>> cases{
      {{directory_ + "/missing.m4a", {{0, 1}}, output_}, AudioExporterError::cannotRead},
      {{output_, {{0, 1}}, output_}, AudioExporterError::cannotRead},
      {{source_, {{0, 1}, {2, 1}}, output_}, AudioExporterError::noSuchTrack},
      {{source_, {}, output_}, AudioExporterError::noSuchTrack},
      {{source_, {{0, 1}}, directory_ + "/missing/mix.m4a"}, AudioExporterError::writeFailed},
      {{source_, {{0, 1}}, directory_}, AudioExporterError::writeFailed},
  };
  for (const auto& [mix, expected] : cases) {
    const auto mixing = exporter_->makeExport(mix);
    const auto mixed = finish(mixing->run());
    ASSERT_FALSE(mixed) << describe(expected);
    EXPECT_TRUE(mixed.error().is(expected)) << mixed.error().fullDescription();
    EXPECT_EQ(mixing->status(), Status::failed);
    EXPECT_TRUE(mixing->error() && mixing->error()->is(expected));
    EXPECT_EQ(names(), before);
    EXPECT_EQ(files_->read(output_).value(), (Bytes{1, 2, 3}));
  }
}

TEST_P(AudioExporterConformance, cancelledOrAbandonedInTheMiddleItLeavesEverythingAsItWas) {
  record({20});
  ASSERT_TRUE(files_->writeNew(output_, ByteChain(Bytes{1, 2, 3}), Durability::cached));
  const auto before = names();
  const auto mixing = exporter_->makeExport({source_, {{0, 1}}, output_});
  const auto mixed = finish(mixing->run(), [&] {
    EXPECT_TRUE(world().waitUntil([&] { return mixing->progress() > 0; }));
    mixing->cancel();
  });
  ASSERT_FALSE(mixed);
  EXPECT_TRUE(mixed.error().is(CommonError::cancelled));
  EXPECT_EQ(mixing->status(), Status::cancelled);
  EXPECT_LT(mixing->progress(), 1);

  {
    const auto abandoned = exporter_->makeExport({source_, {{0, 1}}, output_});
    TaskScope scope(dispatch().main());
    scope.start(abandoned->run());
    EXPECT_TRUE(world().waitUntil([&] { return abandoned->progress() > 0; }));
  }
  EXPECT_EQ(names(), before);
  EXPECT_EQ(files_->read(output_).value(), (Bytes{1, 2, 3}));
}

}  // namespace
}  // namespace quillbeam
