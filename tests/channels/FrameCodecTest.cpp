#include "channels/FrameCodec.h"

#include <gtest/gtest.h>

#include <fstream>

#include "channels/StandardMethodCodec.h"
#include "support/Hex.h"

namespace quillbeam {
namespace {

using test::fromHex;
using test::toHex;

Bytes encoded(const Frame& frame) { return FrameCodec::encode(frame).value().flattened(); }

/// The bytes of the document's n-th ```hex block; what follows "|" in a line is for people.
Bytes documentedBytes(int block) {
  std::ifstream document(QUILLBEAM_SOURCE_DIR "/docs/formats/socket-wire.md");
  std::string hex;
  bool inside = false;
  for (std::string line; std::getline(document, line);) {
    if (line == "```") inside = false;
    if (inside) hex += line.substr(0, line.find('|')) + " ";
    if (line == "```hex") inside = block-- == 0;
  }
  return fromHex(hex);
}

TEST(FrameCodec, isWhatItsDocumentShows) {
  const Frame call{FrameKind::message, 1, "io.quillbeam.app.permissions",
                   StandardMethodCodec::encodeCall("checkPermissions", nullptr)};
  const Value permissions = ValueMap{{"microphone", true}, {"screenCapture", true}, {"accessibility", false}};
  const Frame reply{FrameKind::reply, 1, "", StandardMethodCodec::encodeReply(permissions)};

  EXPECT_EQ(toHex(encoded(call)), toHex(documentedBytes(0)));
  EXPECT_EQ(toHex(encoded(reply)), toHex(documentedBytes(1)));
}

TEST(FrameReader, staysBrokenAfterGarbage) {
  const std::vector<std::pair<std::string, FrameError>> garbage = {
      {"47 45 54 20 2f 20", FrameError::oversized},                    // "GET / "
      {"01 00 00 04 01", FrameError::oversized},                       // one byte too long
      {"06 00 00 00 01 00", FrameError::malformed},                    // shorter than a head
      {"07 00 00 00 03 00 00 00 00 00 00", FrameError::malformed},     // unknown kind
      {"07 00 00 00 01 00 00 00 00 01 00", FrameError::malformed},     // name beyond the end
      {"08 00 00 00 01 00 00 00 00 01 00 ff", FrameError::malformed},  // name not UTF-8
  };
  for (const auto& [hex, error] : garbage) {
    FrameReader reader;
    reader.append(fromHex(hex));
    EXPECT_TRUE(reader.next().error().is(error)) << hex;
    reader.append(encoded({}));
    EXPECT_TRUE(reader.next().error().is(error)) << hex;
  }
}

TEST(FrameCodec, refusesToWriteWhatCouldNotBeRead) {
  Frame frame{FrameKind::message, 0, "", Bytes(FrameCodec::largestFrame - 6)};
  EXPECT_TRUE(FrameCodec::encode(frame).error().is(FrameError::oversized));
  frame.message.pop_back();
  EXPECT_TRUE(FrameCodec::encode(std::move(frame)));
  EXPECT_TRUE(
      FrameCodec::encode({FrameKind::message, 0, std::string(2000, 'n'), {}}).error().is(FrameError::oversized));
}

}  // namespace
}  // namespace quillbeam
