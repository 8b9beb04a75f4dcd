#include <gtest/gtest.h>

#include "Recording.h"
#include "platform/linux/ffmpeg/Interleaver.h"
#include "platform/linux/ffmpeg/VideoPipeline.h"

namespace quillbeam {
namespace {

using namespace test;

EncodedPacket packetAt(std::int64_t time) { return {.presentationTime = time, .decodeTime = time}; }

std::vector<std::int64_t> timesOf(const std::vector<Interleaver::TrackPacket>& fragment, std::size_t track) {
  std::vector<std::int64_t> times;
  for (const auto& [index, packet] : fragment) {
    if (index == track) times.push_back(packet.decodeTime);
  }
  return times;
}

TEST(InterleaverOfTracks, holdsAFragmentUntilEveryTrackHasPassedIt) {
  Interleaver interleaver({10, 10});
  for (std::int64_t time = 0; time < 13; ++time) interleaver.push(0, packetAt(time));
  for (std::int64_t time = 0; time < 10; time += 3) interleaver.push(1, packetAt(time));
  EXPECT_FALSE(interleaver.isFragmentReady()) << "the second track's packet at 9 has no successor yet";
  interleaver.push(1, packetAt(14));
  ASSERT_TRUE(interleaver.isFragmentReady());
  const auto fragment = interleaver.takeFragment();
  EXPECT_EQ(timesOf(fragment, 0).size(), 10u);
  EXPECT_EQ(timesOf(fragment, 1), (std::vector<std::int64_t>{0, 3, 6, 9}));
  EXPECT_EQ(fragment.back().packet.duration, fragment.back().track == 1 ? 5 : 1) << "durations reach to the successor";
  EXPECT_FALSE(interleaver.isFragmentReady());
}

TEST(InterleaverOfTracks, waitsForALateTrackOnlySoLongAndTakesItsPacketsWhenTheyCome) {
  Interleaver interleaver({10, 10});
  for (const std::int64_t time : {0, 1}) interleaver.push(1, packetAt(time));
  for (std::int64_t time = 0; time <= 20; ++time) interleaver.push(0, packetAt(time));
  EXPECT_FALSE(interleaver.isFragmentReady());
  for (std::int64_t time = 21; time <= 50; ++time) interleaver.push(0, packetAt(time));
  while (interleaver.isFragmentReady()) interleaver.takeFragment();
  interleaver.push(1, packetAt(9));
  interleaver.push(1, packetAt(60));
  interleaver.push(0, packetAt(61));
  ASSERT_TRUE(interleaver.isFragmentReady());
  EXPECT_EQ(timesOf(interleaver.takeFragment(), 1), (std::vector<std::int64_t>{1, 9}));
}

TEST(InterleaverOfTracks, cutsNothingBeforeEveryTrackHasStartedOrEnded) {
  Interleaver interleaver({10, 10, 10});
  for (std::int64_t time = 0; time <= 300; ++time) interleaver.push(0, packetAt(time));
  interleaver.endTrack(2, std::nullopt);
  EXPECT_FALSE(interleaver.isFragmentReady());
  EXPECT_TRUE(interleaver.missingTracks(MediaTime(31, 1)).empty());
  EXPECT_EQ(interleaver.missingTracks(MediaTime(2, 1)), std::vector<std::size_t>{1});
  interleaver.endTrack(1, std::nullopt);
  EXPECT_TRUE(interleaver.isFragmentReady());
}

TEST(InterleaverOfTracks, theEndCutsAndStretchesTheLastPacket) {
  Interleaver interleaver({10, 10});
  for (std::int64_t time = 0; time < 8; ++time) interleaver.push(0, packetAt(time));
  for (std::int64_t time = 0; time < 8; time += 2) interleaver.push(1, packetAt(time));
  interleaver.endTrack(0, MediaTime(25, 10));
  interleaver.cutTrack(1, MediaTime(3, 10));
  interleaver.endTrack(1, std::nullopt);
  ASSERT_TRUE(interleaver.isFragmentReady());
  const auto fragment = interleaver.takeFragment();
  EXPECT_EQ(timesOf(fragment, 1), (std::vector<std::int64_t>{0, 2}));
  EXPECT_EQ(fragment.back().packet.duration, 18);
  EXPECT_FALSE(interleaver.isFragmentReady());
}

/// A disk that stalls is a mailbox that nobody empties.
TEST(PicturesBeforeAStalledDisk, pileUpInFrontOfTheEncoderAndAreAllWrittenLater) {
  WorkSignal video;
  WorkSignal writing;
  SampleQueue pictures(SampleQueue::Measure::pictures, 12, video);
  SessionTimes session;
  session.start(MediaTime::zero());
  PacketMailbox mailbox(8, video, writing);
  VideoPipeline pipeline(*VideoEncoder::create(screenVideo), pictures, session, mailbox);
  using Outcome = WorkerThread::Outcome;
  int taken = 0;
  for (; !pictures.isFull(); ++taken) {
    ASSERT_TRUE(pictures.push(pictureAt(grayPicture(320, 180, 90), MediaTime(taken, 24))));
    pipeline.step();
  }
  EXPECT_LE(taken, 8 + 12 + 5) << "the queue must fill while nothing leaves the mailbox";
  EXPECT_EQ(pipeline.step(), Outcome::idle);

  pictures.close();
  int written = 0;
  for (Outcome outcome = Outcome::worked; outcome != Outcome::finished;) {
    while (mailbox.pop()) ++written;
    outcome = pipeline.step();
  }
  while (mailbox.pop()) ++written;
  EXPECT_EQ(written, taken);
  ASSERT_TRUE(mailbox.ending());
  EXPECT_EQ(**mailbox.ending(), MediaTime(taken, 24));
}

TEST(VideoEncoderOutput, startsAForcedKeyFrameAndHoldsBackAtMostTwoPictures) {
  const auto encoder = *VideoEncoder::create(screenVideo);
  std::vector<EncodedPacket> packets;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(encoder->encode(movingPicture(320, 180, i), i * 3750, i == 9 ? KeyFrame::forced : KeyFrame::whenNeeded,
                                [&](EncodedPacket packet) { packets.push_back(std::move(packet)); }));
    EXPECT_GE(static_cast<int>(packets.size()), i - 1);
  }
  const auto key = std::ranges::find(packets, std::int64_t{9 * 3750}, &EncodedPacket::presentationTime);
  ASSERT_NE(key, packets.end());
  EXPECT_TRUE(key->isKey);
}

}  // namespace
}  // namespace quillbeam
