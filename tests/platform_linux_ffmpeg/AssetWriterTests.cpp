#include <gtest/gtest.h>

#include "Programs.h"
#include "Recording.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

using namespace test;

constexpr double frame24 = 1.0 / 24;
constexpr double millisecond = 0.001;

class MovieWriting : public testing::Test {
 protected:
  TestDirectory directory_;
  const Path path_ = directory_.path() + "/movie.mp4";
};

TEST_F(MovieWriting, showsEveryPictureAtItsTimeAlthoughTheyAreReordered) {
  Recording recording(path_);
  recording.record(60);
  ASSERT_TRUE(recording.finish());

  const auto times = numbersOf(probed(path_, "frame=pts_time", "-select_streams v"));
  ASSERT_EQ(times.size(), 60u);
  for (std::size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(times[i], static_cast<double>(i) * frame24, 1e-5);
  const std::string types = probed(path_, "frame=pict_type", "-select_streams v");
  EXPECT_NE(types.find('B'), std::string::npos);
  EXPECT_EQ(types.find("B\nB"), std::string::npos) << "the encoder may hold back no more than a picture or two";
}

TEST_F(MovieWriting, keepsSoundWhereItsStampsSay) {
  constexpr std::int64_t systemClick = 70'000;
  constexpr std::int64_t microphoneClick = 91'234;
  Recording recording(path_);
  for (int i = 0; i < 72; ++i) {
    appendWhenReady(*recording.pictures, pictureAt(grayPicture(320, 180, 50), MediaTime(i, 24)));
  }
  for (std::int64_t at = 0; at < 144'000; at += 480) {
    appendWhenReady(*recording.system, soundAt(at, 480, systemClick));
    // The microphone's first second is missing, a later block is lost, another one comes twice.
    if (at < 48'000 || at == 60'000) continue;
    appendWhenReady(*recording.microphone, soundAt(at, at == 72'000 ? 960 : 480, microphoneClick));
  }
  ASSERT_TRUE(recording.finish());

  const auto system = decodedSound(path_, 0);
  const auto microphone = decodedSound(path_, 1);
  EXPECT_NEAR(loudest(system), systemClick, 2);
  EXPECT_NEAR(loudest(microphone), microphoneClick, 2);
  EXPECT_GT(std::abs(system[loudest(system)]), 0.3f);
  for (const double start : numbersOf(probed(path_, "stream=start_time"))) EXPECT_EQ(start, 0);
  for (const double duration : numbersOf(probed(path_, "stream=duration"))) EXPECT_NEAR(duration, 3, millisecond);
}

TEST_F(MovieWriting, samplesBeforeTheSessionAreCutToTheSample) {
  FfmpegMediaWriters writers;
  const auto writer = *writers.makeMovieWriter(path_, MovieFileType::mpeg4, NetworkUse::optimized);
  AssetWriterInput& pictures = *writer->addVideoInput(screenVideo);
  AssetWriterInput& sound = *writer->addAudioInput(meetingSound);
  ASSERT_TRUE(writer->startWriting());
  EXPECT_FALSE(pictures.append(pictureAt(grayPicture(320, 180, 50), MediaTime::zero()))) << "no session yet";
  writer->startSession(MediaTime(10, 1));
  for (int i = 230; i < 288; ++i) pictures.append(pictureAt(grayPicture(320, 180, 50), MediaTime(i, 24)));
  for (std::int64_t at = 479'900; at < 576'000; at += 1000) sound.append(soundAt(at, 1000, 500'000));
  ASSERT_TRUE(waitFor(writer->finishWriting()));

  EXPECT_NEAR(loudest(decodedSound(path_, 0)), 20'000, 2);
  EXPECT_EQ(numbersOf(probed(path_, "frame=pts_time", "-select_streams v")).size(), 48u);
}

TEST_F(MovieWriting, colorsComeBackAsTheyWere) {
  const std::array<std::array<int, 3>, 6> colors{
      {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}, {0, 0, 0}, {90, 160, 220}}};
  auto picture = std::make_shared<TestPicture>(480, 80);
  for (int i = 0; i < 6; ++i) picture->fill(i * 80, 0, 80, 80, colors[i]);
  VideoSettings settings = screenVideo;
  settings.width = 480;
  settings.height = 80;
  Recording recording(path_, settings);
  for (int i = 0; i < 24; ++i) appendWhenReady(*recording.pictures, pictureAt(picture, MediaTime(i, 24)));
  ASSERT_TRUE(recording.finish());

  EXPECT_EQ(probed(path_, "stream=color_range,color_space,color_transfer,color_primaries", "-select_streams v"),
            "tv,smpte170m,iec61966-2-1,bt709\n");
  const std::string rgb = outputOf("ffmpeg -v error -i " + path_ + " -frames:v 1 -f rawvideo -pix_fmt rgb24 -");
  ASSERT_EQ(rgb.size(), 480u * 80 * 3);
  for (int i = 0; i < 6; ++i) {
    for (int channel = 0; channel < 3; ++channel) {
      const int seen = static_cast<std::uint8_t>(rgb[(40 * 480 + i * 80 + 40) * 3 + channel]);
      EXPECT_NEAR(seen, colors[i][channel], 6) << "colour " << i << " channel " << channel;
    }
  }
}

}  // namespace
}  // namespace quillbeam
