#include <gtest/gtest.h>

#include "Recording.h"
#include "platform/linux/ffmpeg/Interleaver.h"
#include "platform/linux/ffmpeg/VideoPipeline.h"

namespace quillbeam {
namespace {

using namespace test;

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

TEST(Fragments, endWhereTheirIntervalsEndAlsoAfterAJump) {
  Interleaver interleaver({10}, {MediaTime(1, 1), MediaTime(5, 1), 0});
  std::vector<std::vector<std::int64_t>> fragments;
  for (const std::int64_t time : {0, 4, 8, 73, 76, 79, 82, 88, 91}) {
    interleaver.push(0, {nullptr, time, time, 0, true});
    while (interleaver.isFragmentReady()) {
      std::vector<std::int64_t> times;
      for (const auto& [track, packet] : interleaver.takeFragment()) times.push_back(packet.presentationTime);
      if (!times.empty()) fragments.push_back(times);
    }
  }
  EXPECT_EQ(fragments, (std::vector<std::vector<std::int64_t>>{{0, 4, 8}, {73, 76, 79}, {82, 88}}));
}

}  // namespace
}  // namespace quillbeam
