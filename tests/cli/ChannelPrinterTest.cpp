#include "cli/ChannelPrinter.h"

#include <gtest/gtest.h>

#include <limits>

#include "channels/StandardMethodCodec.h"

namespace quillbeam::cli {
namespace {

TEST(ListenedMessage, isPrintedAsCallEventErrorOrEnd) {
  EXPECT_EQ(printedMessage("c", StandardMethodCodec::encodeCall("update", ValueMap{{"n", 1}})),
            R"({"channel":"c","method":"update","arguments":{"n":1}})");
  EXPECT_EQ(printedMessage("c", StandardMethodCodec::encodeReply(Value(0.5))),
            R"({"channel":"c","event":"value","arguments":0.5})");
  EXPECT_EQ(printedMessage("c", StandardMethodCodec::encodeReply(MethodError{"E", "why", nullptr})),
            R"({"channel":"c","event":"error","arguments":{"code":"E","message":"why","details":null}})");
  EXPECT_EQ(printedMessage("c", Bytes()), R"({"channel":"c","event":"end","arguments":null})");
}

TEST(ListenedMessage, staysOneLineOfJsonWhateverArrives) {
  EXPECT_EQ(printedMessage("c", Bytes{0xFF, 0x07}), R"({"channel":"c","event":"malformed","arguments":null})");
  EXPECT_EQ(printedMessage("c", StandardMethodCodec::encodeReply(Value(std::numeric_limits<double>::quiet_NaN()))),
            R"({"channel":"c","event":"unprintable","arguments":null})");
}

}  // namespace
}  // namespace quillbeam::cli
