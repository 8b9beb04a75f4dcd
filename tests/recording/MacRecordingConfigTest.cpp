#include "recording/MacRecordingConfig.h"

#include <gtest/gtest.h>

namespace quillbeam {
namespace {

TEST(OutputResolution, keepsTheAspectWithinTheLongestSideAndRoundsDownToEven) {
  const struct {
    int width, height;
    Resolution expected;
  } cases[] = {
      {2560, 1440, {1920, 1080}},
      {5120, 2880, {1920, 1080}},
      {1920, 1200, {1920, 1200}},
      {1512, 982, {1512, 982}},
      {1080, 1920, {1080, 1920}},
      {1200, 1920, {1200, 1920}},
      {1440, 2560, {1080, 1920}},
      {1366, 768, {1366, 768}},
      {1367, 769, {1366, 768}},
      {3440, 1440, {1920, 802}},
      {3, 1, {2, 2}},
      {0, 1080, {1920, 1080}},
      {1920, -1, {1920, 1080}},
  };
  for (const auto& [width, height, expected] : cases) {
    EXPECT_EQ(MacRecordingConfig::outputResolution(width, height), expected) << width << "x" << height;
  }
}

TEST(RecordingConfig, takesTheDefaultForMissingAndMistypedKeys) {
  const RecordingConfig defaults = RecordingConfig::fromMap({});
  EXPECT_TRUE(defaults.includeMicrophone);
  EXPECT_EQ(defaults.mode(), RecordingMode::audioOnly);

  const RecordingConfig odd = RecordingConfig::fromMap(
      {{"includeMicrophone", "no"}, {"includeSystemAudio", false}, {"recordingMode", 3}, {"audioQuality", "low"}});
  EXPECT_TRUE(odd.includeMicrophone);
  EXPECT_FALSE(odd.includeSystemAudio);
  EXPECT_EQ(odd.recordingMode, "system_audio_with_mic");
  EXPECT_EQ(odd.audioQuality, "low");
}

}  // namespace
}  // namespace quillbeam
