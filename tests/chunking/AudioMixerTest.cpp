#include "chunking/VideoAudioIntake.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numeric>

#include "base/TaskScope.h"
#include "chunking/MonoSamples.h"
#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimLogging.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::FloatNear;

const MediaTime baseline(1000, 1);
constexpr AudioSources onlyMic{.system = false, .mic = true};

/// Takes the mix and holds it to be contiguous.
class MixedTrack final : public AssetWriterInput {
 public:
  bool isReadyForMoreMediaData() const override { return isReady; }
  bool append(const SampleBuffer& sample) override {
    EXPECT_EQ(sample.presentationTime(), MediaTime(static_cast<std::int64_t>(samples.size()), 48'000));
    samples.insert(samples.end(), sample.block()->samples.begin(), sample.block()->samples.end());
    return true;
  }
  void markAsFinished() override {}

  std::vector<float> samples;
  bool isReady = true;
};

struct MixWorld {
  explicit MixWorld(AudioSources sources = {}) : mixer(dispatch, logger, sources) {}

  void append(AudioSource source, MediaTime time, std::vector<float> samples, int rate = 48'000) {
    auto block = std::make_shared<AudioBlock>(AudioBlock{rate, 1, std::move(samples)});
    mixer.append(SampleBuffer::audio(std::move(block), time), source);
    dispatch.runUntilIdle();
  }
  void begin(MediaTime at = baseline) {
    mixer.begin(at, track);
    dispatch.runUntilIdle();
  }
  void finish() {
    TaskScope tasks(dispatch.main());
    tasks.start(mixer.finish());
    dispatch.runUntilIdle();
    EXPECT_TRUE(tasks.isIdle());
  }
  auto errors() {
    return std::ranges::count_if(log.lines(), [](const auto& line) { return line.level == LogLevel::error; });
  }
  std::size_t blocks() const { return track.samples.size() / 1024; }

  SimDispatch dispatch;
  SimSystemLog log;
  Logger logger{log, "com.quillbeam.recorder", "VideoChunkWriter"};
  MixedTrack track;
  VideoAudioIntake mixer;
};

/// Every sample different from its neighbours, so that one that is early, late, lost or doubled is seen.
std::vector<float> tone(std::int64_t firstFrame, int frames) {
  std::vector<float> samples;
  for (std::int64_t at = firstFrame; at < firstFrame + frames; ++at) {
    samples.push_back(0.5F * static_cast<float>(std::sin(static_cast<double>(at) * 0.1305)));
  }
  return samples;
}
std::vector<float> level(float value, int frames) {
  return std::vector<float>(static_cast<std::size_t>(frames), value);
}

TEST(MonoSamples, averagesChannelsAndResamplesOnlyWhatIsAwayFromTheMixRate) {
  EXPECT_THAT(monoSamples({48'000, 2, {0.5F, 0.25F, -1, 1}}), ElementsAre(0.375F, 0));
  std::vector<float> ramp(441);
  std::iota(ramp.begin(), ramp.end(), 0.0F);
  const auto resampled = resampledTo48k(ramp, 44'100);
  ASSERT_EQ(resampled.size(), 480u);
  for (std::size_t at = 0; at < 479; ++at) {
    EXPECT_THAT(resampled[at], FloatNear(static_cast<float>(at) * 0.91875F, 1e-3F)) << at;
  }
  EXPECT_EQ(resampled[479], 440) << "beyond the last sample there is only the last sample";
  EXPECT_EQ(resampledTo48k(ramp, 48'000.5), ramp);
  EXPECT_EQ(resampledTo48k({0.25F}, 192'000).size(), 1u);
}

TEST(AudioMixer, putsTheFirstSampleWhereTheBaselineSays) {
  struct Case {
    MediaTime start;     // of the sound, from the baseline on
    std::size_t frame;   // of the mix, at which …
    std::size_t sample;  // … this sample of the sound lies
  };
  const Case cases[] = {
      {MediaTime(-3, 10), 0, 0},    {MediaTime(-10'001, 1'000'000), 0, 0},
      {MediaTime(-1, 100), 0, 480}, {MediaTime(-5, 1000), 0, 240},
      {MediaTime(1, 50), 960, 0},
  };
  for (const bool arrivesBefore : {true, false}) {
    for (const Case& one : cases) {
      MixWorld w(onlyMic);
      if (!arrivesBefore) w.begin();
      const auto sound = tone(1, 9600);
      w.append(AudioSource::mic, baseline + one.start, sound);
      if (arrivesBefore) w.begin();
      w.finish();
      ASSERT_GT(w.track.samples.size(), one.frame);
      EXPECT_EQ(w.track.samples[one.frame], sound[one.sample]) << one.start.seconds();
      EXPECT_TRUE(one.frame == 0 || w.track.samples[one.frame - 1] == 0);
    }
  }
}

TEST(AudioMixer, weighsSystemSoundBelowTheMicrophoneAndClamps) {
  MixWorld w;
  w.begin();
  w.append(AudioSource::system, baseline, level(0.5F, 4096));
  w.append(AudioSource::mic, baseline, level(0.25F, 1024));
  w.append(AudioSource::mic, baseline + MediaTime(1024, 48'000), level(0.9F, 1024));
  w.append(AudioSource::mic, baseline + MediaTime(2048, 48'000), level(-1.5F, 1024));
  w.finish();
  const auto& mixed = w.track.samples;
  ASSERT_EQ(w.blocks(), 4u);
  EXPECT_THAT(mixed[1023], FloatNear(0.45F, 1e-6F));
  EXPECT_EQ(mixed[1024], 1.0F);
  EXPECT_EQ(mixed[2048], -1.0F);
  EXPECT_THAT(mixed[3072], FloatNear(0.2F, 1e-6F));
}

TEST(AudioMixer, holdsBackBehindTheShorterSourceSoThatLateSoundStillLands) {
  MixWorld w;
  w.begin();
  w.append(AudioSource::system, baseline, level(0.5F, 48'000));
  EXPECT_EQ(w.blocks(), 0u) << "the microphone may still come";
  w.append(AudioSource::mic, baseline, level(0.25F, 4800 + 6 * 1024 - 1));
  EXPECT_EQ(w.blocks(), 5u);
  w.append(AudioSource::mic, baseline + MediaTime(4800 + 6 * 1024 - 1, 48'000), level(0.25F, 1));
  EXPECT_EQ(w.blocks(), 6u);
  w.append(AudioSource::mic, baseline + MediaTime(6 * 1024, 48'000), level(0.25F, 1024));
  w.finish();
  EXPECT_EQ(w.blocks(), 46u) << "the longer source, without a remainder shorter than a block";
  EXPECT_THAT(w.track.samples[6 * 1024], FloatNear(0.7F, 1e-6F)) << "late, in its place, on top of what was there";
  w.append(AudioSource::mic, baseline + MediaTime(2, 1), level(0.25F, 48'000));
  EXPECT_EQ(w.blocks(), 46u);
  EXPECT_EQ(w.mixer.backlog().mic, 0u);
}

TEST(AudioMixer, waitsForASilentSourceOrAFullTrackUntilTheEndButNotForASourceThatIsSwitchedOff) {
  for (const AudioSources sources : {AudioSources{}, onlyMic}) {
    MixWorld w(sources);
    w.begin();
    w.track.isReady = false;
    w.append(AudioSource::mic, baseline, level(0.25F, 48'000));
    EXPECT_EQ(w.blocks(), 0u);
    w.track.isReady = true;
    w.append(AudioSource::mic, baseline + MediaTime(1, 1), level(0.25F, 480));
    EXPECT_EQ(w.blocks(), sources.system ? 0u : 42u);
    w.track.isReady = false;
    w.finish();
    EXPECT_EQ(w.blocks(), 47u) << "the end gives nothing up";
  }
}

TEST(AudioMixer, boundsWhatWaitsAndWarnsOncePerRecording) {
  MixWorld w;
  for (int at = 0; at < 503; ++at) {
    w.append(AudioSource::mic, baseline + MediaTime(at, 100), level(static_cast<float>(at) / 1000, 480));
  }
  EXPECT_EQ(w.mixer.backlog().pending, 500u);
  EXPECT_EQ(w.errors(), 1);
  w.begin();
  for (int at = 503; at < 1100; ++at) w.append(AudioSource::mic, baseline + MediaTime(at, 100), level(0.25F, 480));
  EXPECT_EQ(w.mixer.backlog().mic, 1000u);
  EXPECT_EQ(w.errors(), 1) << "the queue's warning shares the flag";
  w.finish();
  EXPECT_EQ(w.track.samples[99 * 480], 0) << "the oldest went";
  EXPECT_EQ(w.track.samples[100 * 480], 0.1F);
}

TEST(AudioMixer, aMinuteOfContiguousBuffersComesOutSampleForSample) {
  struct Case {
    MediaTime zero;
    std::int64_t start;      // of the sound, in frames of the host clock
    std::size_t firstFrame;  // in the mix
  };
  // The second baseline lies exactly between two frames: where a time rounded on the way shows as a click.
  for (const Case& one :
       {Case{baseline, 48'000'000 - 14'400, 0}, Case{MediaTime::nanoseconds(1'000'000'031'250), 48'000'009, 8}}) {
    for (const int blockFrames : {480, 1024, 441}) {
      MixWorld w(onlyMic);
      bool begun = false;
      for (std::int64_t at = 0; at < 60 * 48'000; at += blockFrames) {
        if (at > 14'400 && !std::exchange(begun, true)) w.begin(one.zero);
        w.append(AudioSource::mic, MediaTime(one.start + at, 48'000), tone(at, blockFrames));
      }
      w.finish();
      ASSERT_GT(w.blocks(), 2800u);
      const std::vector<float> sound = tone(0, 59 * 48'000);
      const auto mixed = std::span(w.track.samples).subspan(one.firstFrame, sound.size());
      EXPECT_TRUE(std::ranges::equal(mixed, sound))
          << blockFrames << " differs at frame " << std::ranges::mismatch(mixed, sound).in1 - mixed.begin();
    }
  }
}

}  // namespace
}  // namespace quillbeam
