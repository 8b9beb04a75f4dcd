#include <gtest/gtest.h>

#include "base/ByteChain.h"
#include "base/Date.h"
#include "base/MediaTime.h"
#include "base/Uuid.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

TEST(Uuid, marksRandomBytesAsVersionFour) {
  Uuid::Bytes ones;
  ones.fill(0xFF);
  EXPECT_EQ(Uuid::fromRandom(ones).string(), "FFFFFFFF-FFFF-4FFF-BFFF-FFFFFFFFFFFF");
}

TEST(Date, writesWholeSecondsAlsoBeforeTheEpoch) {
  EXPECT_EQ(iso8601(Date(1'773'039'900'999'999us)), "2026-03-09T07:05:00Z");
  EXPECT_EQ(iso8601(Date(-1us)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(secondsSince1970(Date(1'500'000us)), 1.5);
}

TEST(Date, readsFractionsAndOffsets) {
  const Date seven = parseIso8601("2026-03-09T07:05:00Z").value();
  EXPECT_EQ(parseIso8601("2026-03-09T08:35:00+01:30").value(), seven);
  EXPECT_EQ(parseIso8601("2026-03-09T00:05:00-0700").value(), seven);
  EXPECT_EQ(parseIso8601("2026-03-09T07:05:00.123456789Z").value(), seven + 123'456us);
  EXPECT_TRUE(parseIso8601("2024-02-29T00:00:00Z"));
}

TEST(Date, refusesWhatIsNoMoment) {
  for (const std::string_view text :
       {"", "2026-03-09", "2026-03-09T07:05:00", "2026-02-29T07:05:00Z", "2026-13-01T00:00:00Z", "2026-03-09T24:00:00Z",
        "2026-03-09T07:05:00.Z", "2026-03-09T07:05:00Zjunk", "+026-03-09T07:05:00Z", "2026-03-09T07:05:00+1"}) {
    EXPECT_FALSE(parseIso8601(text)) << text;
  }
}

TEST(MediaTime, comparesByMeaningWhereDoublesWouldNot) {
  EXPECT_EQ(MediaTime(1, 3), MediaTime(16'000, 48'000));
  EXPECT_LT(MediaTime(9'007'199'254'740'992, 48'000), MediaTime(9'007'199'254'740'993, 48'000));
  EXPECT_LT(MediaTime(-1, 2), MediaTime(1, 1'000'000'000));
  EXPECT_GT(MediaTime(std::numeric_limits<std::int64_t>::max(), 1),
            MediaTime(std::numeric_limits<std::int64_t>::max(), 2));
  EXPECT_LT(MediaTime::invalid(), MediaTime(-5, 1));
  EXPECT_EQ(MediaTime::invalid(), MediaTime(7, 0));
}

TEST(MediaTime, addsAnHourOfFramesWithoutDrift) {
  MediaTime sum = MediaTime::zero();
  for (int i = 0; i < 3600 * 24; ++i) sum = sum + MediaTime(1, 24);
  EXPECT_EQ(sum, MediaTime(3600, 1));
  EXPECT_EQ(MediaTime(1, 44'100) + MediaTime(1, 48'000), MediaTime(307, 7'056'000));
  EXPECT_FALSE((MediaTime(1, 24) + MediaTime::invalid()).isValid());
  // No common timescale of 32 bits: nanoseconds.
  EXPECT_EQ((MediaTime(1, 1'999'999'973) + MediaTime(1, 1'999'999'943)).timescale(), 1'000'000'000);
}

TEST(MediaTime, roundsHalvesAwayFromZero) {
  EXPECT_EQ(MediaTime(1, 2).rescaled(1).value(), 1);
  EXPECT_EQ(MediaTime(-1, 2).rescaled(1).value(), -1);
  EXPECT_EQ(MediaTime(-49, 100).rescaled(1).value(), 0);
  EXPECT_EQ(MediaTime::seconds(-0.5, 1).value(), -1);
  EXPECT_EQ(MediaTime(1, 3).toNanoseconds(), 333'333'333ns);
}

TEST(ByteChain, cutsAcrossSlicesWithoutTouchingItsCopies) {
  ByteChain chain(Bytes{1, 2, 3});
  chain.append(Bytes{});
  chain.append(Bytes{4, 5});
  const ByteChain copy = chain;

  const ByteChain front = chain.takeFront(4);

  EXPECT_EQ(front.flattened(), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(chain.flattened(), (Bytes{5}));
  EXPECT_EQ(copy.flattened(), (Bytes{1, 2, 3, 4, 5}));
  EXPECT_EQ(chain.takeFront(100).size(), 1u);
  EXPECT_TRUE(chain.empty());
}

}  // namespace
}  // namespace quillbeam
