#include <gtest/gtest.h>

#include "Recording.h"
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

}  // namespace
}  // namespace quillbeam
