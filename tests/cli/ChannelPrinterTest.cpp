#include "cli/ChannelPrinter.h"

#include <gtest/gtest.h>

#include <limits>

#include "channels/StandardMethodCodec.h"

namespace quillbeam::cli {
namespace {

TEST(ListenedMessage, staysOneLineOfJsonWhateverArrives) {
  EXPECT_EQ(printedMessage("c", Bytes{0xFF, 0x07}), R"({"channel":"c","event":"malformed","arguments":null})");
  EXPECT_EQ(printedMessage("c", StandardMethodCodec::encodeReply(Value(std::numeric_limits<double>::quiet_NaN()))),
            R"({"channel":"c","event":"unprintable","arguments":null})");
}

}  // namespace
}  // namespace quillbeam::cli
