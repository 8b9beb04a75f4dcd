#include "base/Json.h"

#include <gtest/gtest.h>

#include <limits>

namespace quillbeam {
namespace {

TEST(Json, writesTheLayoutsThatFilesAndRequestsUse) {
  const Value value =
      ValueMap{{"a", ValueList{1, 2.5}}, {"b", ValueMap{}}, {"bytes", Value::Bytes{'l', 'i', 'g', 'h'}}};

  EXPECT_EQ(*toJson(value), R"({"a":[1,2.5],"b":{},"bytes":"bGlnaA=="})");
  EXPECT_EQ(*toJson(value, JsonLayout::indented),
            "{\n  \"a\": [\n    1,\n    2.5\n  ],\n  \"b\": {},\n  \"bytes\": \"bGlnaA==\"\n}");
}

TEST(Json, readsNumbersByTheirWidth) {
  const auto numbers = parseJson("[2147483647, 2147483648, -9223372036854775808, 18446744073709551615, 1.0]");
  ASSERT_TRUE(numbers);
  EXPECT_EQ(*numbers, Value(ValueList{std::int32_t{2147483647}, std::int64_t{2147483648},
                                      std::numeric_limits<std::int64_t>::min(), 18446744073709551615.0, 1.0}));
}

TEST(Json, refusesBadTextWithAnErrorThatSaysWhere) {
  for (const std::string text : {"", "{", "[1,]", "{\"a\" 1}", "nul", "1e999", "\"\xFF\"", "\"\\ud800\"", "[1] x",
                                 "{\"a\":1,\"b\":2,\"a\":3}"}) {
    const auto value = parseJson(text);
    ASSERT_FALSE(value) << text;
    EXPECT_TRUE(value.error().is(CommonError::malformedData)) << text;
  }
  EXPECT_EQ(parseJson("[1, oops]").error().description(), "The JSON text is malformed: at byte 5");
}

TEST(Json, boundsNestingInBothDirections) {
  const std::string deepest = std::string(128, '[') + std::string(128, ']');
  const auto value = parseJson(deepest);
  ASSERT_TRUE(value);
  EXPECT_EQ(toJson(*value).value(), deepest);
  EXPECT_TRUE(toJson(ValueList{*value}).error().is(CommonError::unsupported));
  EXPECT_TRUE(parseJson(std::string(1'000'000, '[')).error().is(CommonError::malformedData));
}

}  // namespace
}  // namespace quillbeam
