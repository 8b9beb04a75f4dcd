#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "channels/FrameCodec.h"
#include "channels/StandardMethodCodec.h"
#include "fuzz/FuzzTargets.h"

namespace quillbeam::fuzz {
namespace {

/// Makes plausible nonsense out of good input; the seed is the whole story.
class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) {}

  Bytes mutated(const std::vector<Bytes>& corpus) {
    Bytes input = corpus[below(corpus.size())];
    for (std::size_t changes = 1 + below(4); changes > 0; --changes) change(input, corpus);
    return input;
  }

 private:
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  void change(Bytes& input, const std::vector<Bytes>& corpus) {
    static constexpr std::uint8_t telling[] = {0, 1, 7, 12, 13, 127, 128, 253, 254, 255};
    const std::size_t at = below(input.size() + 1);
    const auto position = input.begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t count = std::min(input.size() - at, 1 + below(8));
    switch (below(5)) {
      case 0:
        input.insert(position, telling[below(std::size(telling))]);
        break;
      case 1:
        input.erase(position, position + static_cast<std::ptrdiff_t>(count));
        break;
      case 2:
        if (at < input.size()) input[at] ^= static_cast<std::uint8_t>(1 << below(8));
        break;
      case 3:
        if (at < input.size()) input[at] = telling[below(std::size(telling))];
        break;
      case 4: {
        const Bytes& other = corpus[below(corpus.size())];
        const auto from = other.begin() + static_cast<std::ptrdiff_t>(below(other.size() + 1));
        input.insert(position, from, other.end());
        break;
      }
    }
  }

  std::mt19937_64 random_;
};

void survivesMutations(void (*target)(ByteSpan), const std::vector<Bytes>& corpus) {
  constexpr std::uint64_t seed = 20260309;
  testing::Test::RecordProperty("seed", std::to_string(seed));
  Mutator mutator(seed);
  for (const Bytes& input : corpus) target(input);
  for (int round = 0; round < 30'000; ++round) target(mutator.mutated(corpus));
}

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

const Value everyKind = ValueMap{{"nil", nullptr},
                                 {"flags", ValueList{true, false}},
                                 {"numbers", ValueList{7, std::int64_t{1} << 40, 2.5}},
                                 {"text", "caf\u00E9 \U0001F3A4"},
                                 {"bytes", Value::Bytes(300, 9)},
                                 {"ints", Value::Ints32{1, 2}},
                                 {"longs", Value::Ints64{3}},
                                 {"floats", Value::Floats32{0.5F}},
                                 {"doubles", Value::Floats64{0.25, 1e300}}};

TEST(SeededMutations, ofMessagesLeaveTheStandardCodecStanding) {
  survivesMutations(
      standardCodec,
      {StandardMethodCodec::encodeCall("startMacRecording", everyKind), StandardMethodCodec::encodeReply(everyKind),
       StandardMethodCodec::encodeReply(MethodError{"CODE", "message", everyKind}), Bytes{0x05, 0x03, 'f', 'f', 'f'}});
}

TEST(SeededMutations, ofFramesLeaveTheReaderStanding) {
  Bytes stream = {2};
  for (const Frame& frame : {Frame{FrameKind::message, 1, "io.quillbeam.app.permissions", Bytes(40, 1)},
                             Frame{FrameKind::reply, 1, "", {}}, Frame{FrameKind::message, 0, "x", Bytes(3, 2)}}) {
    const Bytes bytes = FrameCodec::encode(frame).value().flattened();
    stream.insert(stream.end(), bytes.begin(), bytes.end());
  }
  survivesMutations(frameStream, {stream, Bytes{0, 7, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}});
}

TEST(SeededMutations, ofTextLeaveTheJsonReaderStanding) {
  survivesMutations(
      json, {bytesOf(R"({"id":"A-1","parts":[{"number":1,"etag":"\"x\""},{"number":2,"etag":null}],"done":false})"),
             bytesOf(R"([0,-1,2147483648,18446744073709551615,1e308,-0.0,1E-400,"\ud83c\udfa4\u0000\n"])"),
             bytesOf(" { } ")});
}

TEST(SeededMutations, ofFilesAndAnswersLeaveTheUploadStanding) {
  survivesMutations(
      sessionRecord,
      {bytesOf(R"({"id":"A","uploadId":"u","fileId":"f","teamId":"t","folderId":"o","fileName":"a","contentType":"c",)"
               R"("state":"uploading","createdAt":"2025-03-01T09:30:00Z","lastModifiedAt":"2025-03-01T09:30:00Z",)"
               R"("uploadedParts":[{"partNumber":2,"etag":"e","size":5,"uploadedAt":"2025-03-01T09:30:00Z"}],)"
               R"("pendingParts":[3],"failedParts":[{"partNumber":1,"lastError":"no","retryCount":1,)"
               R"("lastAttemptAt":"2025-03-01T09:30:00Z"}],"nextPartNumber":1,"totalBytesUploaded":5,)"
               R"("totalPartsExpected":3,"lastError":"no","errorCount":1})")});
  survivesMutations(
      serviceAnswer,
      {bytesOf(R"({"data":{"fileId":"1","uploadId":"2","uploadUrl":"https://s/1?a=%2B"}})"), bytesOf("oops")});
  survivesMutations(clientConfiguration, {bytesOf(R"({"baseUrl":"https://api.test","authToken":"t"})")});
}

}  // namespace
}  // namespace quillbeam::fuzz
