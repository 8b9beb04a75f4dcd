#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/UploadWorld.h"
#include "upload/NativeUploadAdapter.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::ElementsAre;

/// An adapter and what it answered, in order.
struct Recording {
  explicit Recording(UploadWorld& world) : adapter(world.manager(), MacUploadSourceType::screen) {}

  void note(const std::string& what, const Result<void>& result) {
    answers.push_back(what + ": " + (result ? "ok" : result.error().description()));
  }
  void initialize() {
    adapter.initializeUpload({"team", "folder", "meeting.mp4", "video/mp4", std::nullopt, std::nullopt},
                             [this](const Result<InitializeUploadResponse>& answer) {
                               note("init", answer ? Result<void>() : answer.error());
                             });
  }
  void send(int part, std::string_view text) {
    adapter.uploadChunk(ByteChain(Bytes(text.begin(), text.end())), part,
                        [this, part](const Result<void>& result) { note(std::to_string(part), result); });
  }
  void finalize() {
    adapter.finalizeUpload([this](const Result<void>& result) { note("end", result); });
  }

  NativeUploadAdapter adapter;
  std::vector<std::string> answers;
};

TEST(UploadAdapter, keepsTheBytesOfARecordingThatGotNoSessionOutOfTheOneBefore) {
  UploadWorld machine;
  Recording first(machine);
  first.initialize();
  machine.advance(1s);
  first.send(1, "aaaa");
  machine.advance(1s);

  machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (UploadWorld::isCall(exchange, "init")) return HttpResponse{.status = 503, .body = "down"};
    return std::nullopt;
  };
  Recording second(machine);
  second.initialize();
  second.send(1, "XXXX");
  machine.advance(1s);
  second.send(2, "XXXX");
  second.finalize();
  machine.advance(1s);
  EXPECT_THAT(second.answers, ElementsAre("1: No active upload session", "init: HTTP 503: down",
                                          "2: No active upload session", "end: No active upload session"));

  first.send(2, "b");
  machine.advance(1s);
  first.finalize();
  machine.advance(1s);
  EXPECT_EQ(machine.object("file-1"), "aaaab");
  EXPECT_EQ(first.answers.back(), "end: ok");
}

}  // namespace
}  // namespace quillbeam
