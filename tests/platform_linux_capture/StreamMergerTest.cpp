#include "platform/linux/capture/StreamMerger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "platform/sim/SimPicture.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {
namespace {

MediaTime ms(std::int64_t milliseconds) { return {milliseconds, 1000}; }

SampleBuffer picture(MediaTime stamp) {
  return SampleBuffer::video(std::make_shared<SimPicture>(2, 2, 16), {MediaTime(1, 24), stamp, {}},
                             FrameStatus::complete);
}

/// "S" picture, "A" system audio, "M" microphone, each with its time in milliseconds.
std::vector<std::string> told(const std::vector<MergedSample>& samples) {
  std::vector<std::string> told;
  for (const auto& [type, sample] : samples) {
    told.push_back("SAM"[static_cast<int>(type)] + std::to_string(sample.presentationTime().rescaled(1000).value()));
  }
  return told;
}

using Told = std::vector<std::string>;

class StreamMergerTest : public testing::Test {
 protected:
  void hear(OutputType type, int blocks) {
    auto& tone = type == OutputType::audio ? audio_ : microphone_;
    for (int i = 0; i < blocks; ++i) merger.add(type, tone.nextBlock());
  }

  StreamMerger merger{ms(300)};

 private:
  SimTone audio_{440, ms(1000)};
  SimTone microphone_{880, ms(1000)};
};

TEST_F(StreamMergerTest, waitsNoLongerThanItsPatienceForATrackThatIsStuck) {
  merger.addSoundTrack(OutputType::audio, ms(1000));
  merger.addSoundTrack(OutputType::microphone, ms(1000));
  merger.add(OutputType::screen, picture(ms(1042)));
  hear(OutputType::audio, 10);
  EXPECT_EQ(told(merger.release(ms(1299))), (Told{"A1000"}));
  EXPECT_EQ(told(merger.release(ms(1342))), (Told{"A1010", "A1020", "A1030", "A1040", "S1042"}));
  hear(OutputType::microphone, 1);
  EXPECT_EQ(told(merger.release(ms(1343))), (Told{"M1000"})) << "late, but never lost";
}

TEST_F(StreamMergerTest, keepsTimeOrderHoweverTheTracksArrive) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    StreamMerger jittery(ms(300));
    SimTone tones[] = {{440, ms(1003)}, {880, ms(1003)}};
    const OutputType types[] = {OutputType::audio, OutputType::microphone};
    for (const auto type : types) jittery.addSoundTrack(type, ms(1003));

    std::vector<MergedSample> released;
    std::size_t added = 0;
    const auto take = [&](std::vector<MergedSample> samples) {
      released.insert(released.end(), samples.begin(), samples.end());
    };
    for (auto now = ms(1010); now < ms(3000); now = now + MediaTime(1, 24)) {
      if (random() % 3 != 0) {
        jittery.add(OutputType::screen, picture(now));
        ++added;
      }
      for (int track = 0; track < 2; ++track) {
        const auto readUntil = now - ms(static_cast<std::int64_t>(random() % 250));
        for (; tones[track].nextEnd() <= readUntil; ++added) jittery.add(types[track], tones[track].nextBlock());
      }
      take(jittery.release(now));
    }
    take(jittery.releaseAll());
    EXPECT_EQ(released.size(), added);
    EXPECT_TRUE(
        std::ranges::is_sorted(released, {}, [](const auto& merged) { return merged.sample.presentationTime(); }));
  }
}

}  // namespace
}  // namespace quillbeam
