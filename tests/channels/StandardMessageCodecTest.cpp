#include "channels/StandardMessageCodec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "channels/StandardMethodCodec.h"
#include "support/Hex.h"

namespace quillbeam {
namespace {

using test::fromHex;
using test::toHex;

struct Golden {
  Value value;
  std::string bytes;
};

std::string faultIn(const std::string& hex) {
  const auto value = StandardMessageCodec::decode(fromHex(hex));
  if (value) return "";
  EXPECT_TRUE(value.error().is(CommonError::malformedData));
  return value.error().description();
}

TEST(StandardMessageCodec, writesEachTypeInItsPublishedForm) {
  const std::vector<Golden> goldens = {
      {nullptr, "00"},
      {true, "01"},
      {false, "02"},
      {0, "03 00 00 00 00"},
      {std::int32_t{-2}, "03 fe ff ff ff"},
      {std::int64_t{0x1234567890abcdef}, "04 ef cd ab 90 78 56 34 12"},
      {std::numeric_limits<std::int64_t>::min(), "04 00 00 00 00 00 00 00 80"},
      {3.14, "06 00 00 00 00 00 00 00 1f 85 eb 51 b8 1e 09 40"},
      {"hello", "07 05 68 65 6c 6c 6f"},
      {"h\u263A\U0001F602", "07 08 68 e2 98 ba f0 9f 98 82"},
      {"", "07 00"},
      {Value::Bytes{0xBA, 0x5E, 0xBA, 0x11}, "08 04 ba 5e ba 11"},
      {Value::Ints32{-1, 5}, "09 02 00 00 ff ff ff ff 05 00 00 00"},
      {Value::Ints64{-1, 5}, "0a 02 00 00 00 00 00 00 ff ff ff ff ff ff ff ff 05 00 00 00 00 00 00 00"},
      {Value::Floats64{1.0}, "0b 01 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f"},
      {Value::Floats32{1.0F, -2.0F}, "0e 02 00 00 00 00 80 3f 00 00 00 c0"},
      {Value::Floats64{}, "0b 00 00 00 00 00 00 00"},
      {ValueList{nullptr, "a", 3.0}, "0c 03 00 07 01 61 06 00 00 00 00 00 00 00 08 40"},
      {ValueMap{{"on", true}, {"list", ValueList{}}}, "0d 02 07 02 6f 6e 01 07 04 6c 69 73 74 0c 00"},
  };
  for (const Golden& golden : goldens) {
    EXPECT_EQ(toHex(StandardMessageCodec::encode(golden.value)), golden.bytes);
    const auto decoded = StandardMessageCodec::decode(fromHex(golden.bytes));
    ASSERT_TRUE(decoded) << golden.bytes << ": " << decoded.error().description();
    EXPECT_EQ(*decoded, golden.value) << golden.bytes;
  }
}

TEST(StandardMessageCodec, readsAnIntegerTooLargeForSixtyFourBitsAsItsText) {
  EXPECT_EQ(StandardMessageCodec::decode(fromHex("05 03 66 66 66")).value(), Value("fff"));
}

TEST(StandardMessageCodec, changesTheFormOfASizeWhereItMust) {
  const std::vector<std::pair<std::size_t, std::string>> sizes = {
      {253, "08 fd"}, {254, "08 fe fe 00"}, {255, "08 fe ff 00"}, {65535, "08 fe ff ff"}, {65536, "08 ff 00 00 01 00"}};
  for (const auto& [size, head] : sizes) {
    const Bytes message = StandardMessageCodec::encode(Value::Bytes(size, 7));
    const std::size_t headSize = message.size() - size;
    EXPECT_EQ(toHex(ByteSpan(message).first(headSize)), head);
    EXPECT_EQ(StandardMessageCodec::decode(message).value(), Value(Value::Bytes(size, 7)));
  }
}

TEST(StandardMessageCodec, alignsWideNumbersWhereverTheyStand) {
  for (std::size_t shift = 0; shift < 9; ++shift) {
    const Value value = ValueList{std::string(shift, 'x'), Value::Floats64{0.5, -0.0}, 2.5, true,
                                  Value::Ints64{1},        Value::Floats32{0.25F},     7,   std::string(shift, 'y'),
                                  Value::Ints32{-9}};
    EXPECT_EQ(StandardMessageCodec::decode(StandardMessageCodec::encode(value)).value(), value);
  }
  EXPECT_TRUE(std::isnan(*StandardMessageCodec::decode(StandardMessageCodec::encode(std::nan("")))->asDouble()));
}

TEST(StandardMessageCodec, refusesEveryTruncationAndEveryTail) {
  const Bytes message = StandardMessageCodec::encode(ValueMap{{"bytes", Value::Bytes(300, 1)},
                                                              {"doubles", Value::Floats64{1, 2}},
                                                              {"list", ValueList{1, std::int64_t{2}, 3.0, "four"}}});
  for (std::size_t size = 0; size < message.size(); ++size) {
    EXPECT_FALSE(StandardMessageCodec::decode(ByteSpan(message).first(size))) << size;
  }
  Bytes longer = message;
  longer.push_back(0);
  EXPECT_FALSE(StandardMessageCodec::decode(longer));
}

TEST(StandardMessageCodec, refusesWhatIsNoValueAndSaysWhere) {
  EXPECT_EQ(faultIn(""), "The message is malformed at byte 0: it ends too early");
  EXPECT_EQ(faultIn("0f"), "The message is malformed at byte 1: there is no value of type 15");
  EXPECT_NE(faultIn("0c 02 01 ff"), "");
  for (const std::string badText : {"07 01 ff", "07 02 c0 80", "07 03 ed a0 80", "07 04 f4 90 80 80", "07 01 c3"}) {
    EXPECT_NE(faultIn(badText).find("UTF-8"), std::string::npos) << badText;
  }
  EXPECT_NE(faultIn("0d 02 07 01 61 00 07 01 61 01").find("twice"), std::string::npos);
}

TEST(StandardMessageCodec, doesNotBelieveDeclaredSizes) {
  // Each declares about four thousand million entries; the memory for them would not be there.
  for (const std::string type : {"07", "08", "09", "0a", "0b", "0c", "0d", "0e"}) {
    EXPECT_NE(faultIn(type + " ff ff ff ff ff 00 00 00 00 00 00").find("too early"), std::string::npos) << type;
  }
}

TEST(StandardMessageCodec, boundsNestingAndTheNumberOfValues) {
  Bytes nested;
  for (int level = 0; level < 100'000; ++level) nested.insert(nested.end(), {12, 1});
  EXPECT_FALSE(StandardMessageCodec::decode(nested));

  Bytes deepest;
  for (int level = 0; level < 128; ++level) deepest.insert(deepest.end(), {12, 1});
  deepest.push_back(0);
  EXPECT_TRUE(StandardMessageCodec::decode(deepest));

  Bytes crowded = fromHex("0c ff 80 84 1e 00");
  crowded.resize(crowded.size() + 2'000'000);
  EXPECT_FALSE(StandardMessageCodec::decode(crowded));
}

TEST(StandardMessageCodec, repairsTextThatIsNotUtf8OnTheWayOut) {
  const Value repaired = StandardMessageCodec::decode(StandardMessageCodec::encode("a\xFF\xC3\xA4\xE2\x82z")).value();
  EXPECT_EQ(repaired, Value("a\uFFFD\u00E4\uFFFD\uFFFDz"));
}

TEST(StandardMethodCodec, writesCallsAndEnvelopesInTheirPublishedForm) {
  EXPECT_EQ(toHex(StandardMethodCodec::encodeCall("go", 1.0)), "07 02 67 6f 06 00 00 00 00 00 00 00 00 00 f0 3f");
  EXPECT_EQ(toHex(StandardMethodCodec::encodeReply(Value(1.0))), "00 06 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f");
  EXPECT_EQ(toHex(StandardMethodCodec::encodeReply(MethodError{"E", std::nullopt, 1})),
            "01 07 01 45 00 03 01 00 00 00");
  EXPECT_EQ(toHex(StandardMethodCodec::encodeReply(NotImplemented())), "");
}

TEST(StandardMethodCodec, readsEveryKindOfReply) {
  const auto decode = [](const std::string& hex) { return StandardMethodCodec::decodeReply(fromHex(hex)).value(); };
  EXPECT_EQ(decode(""), MethodReply(NotImplemented()));
  EXPECT_EQ(decode("00 00"), MethodReply(Value()));
  EXPECT_EQ(decode("01 07 01 45 07 01 6d 00"), MethodReply(MethodError{"E", "m", nullptr}));
  EXPECT_EQ(decode("01 07 01 45 00 01 07 02 61 74"), MethodReply(MethodError{"E", std::nullopt, true}));
}

TEST(StandardMethodCodec, refusesMessagesOfAnotherShape) {
  for (const std::string call : {"", "07 02 67 6f", "03 01 00 00 00 00", "07 02 67 6f 00 00"}) {
    EXPECT_FALSE(StandardMethodCodec::decodeCall(fromHex(call))) << call;
  }
  for (const std::string reply : {"00", "00 00 00", "02 00", "01 07 01 45", "01 01 00 00", "01 07 01 45 01 00",
                                  "01 07 01 45 00 00 01", "01 07 01 45 00 00 00 00"}) {
    EXPECT_FALSE(StandardMethodCodec::decodeReply(fromHex(reply))) << reply;
  }
}

}  // namespace
}  // namespace quillbeam
