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
  explicit Recording(UploadWorld& world, MacUploadSourceType source = MacUploadSourceType::screen)
      : machine(world), adapter(world.manager(), source) {}

  void note(const std::string& what, const Result<void>& result) {
    answers.push_back(what + ": " + (result ? "ok" : result.error().description()));
  }
  void initialize() {
    adapter.initializeUpload({"team", "folder", "meeting.mp4", "video/mp4", std::nullopt, std::nullopt},
                             [this](const Result<InitializeUploadResponse>& answer) {
                               note("init", answer ? Result<void>() : answer.error());
                             });
  }
  void send(int part, std::string_view text = "aaaa") {
    adapter.uploadChunk(ByteChain(Bytes(text.begin(), text.end())), part,
                        [this, part](const Result<void>& result) { note(std::to_string(part), result); });
  }
  void finalize() {
    adapter.finalizeUpload([this](const Result<void>& result) { note("end", result); });
  }

  UploadWorld& machine;
  NativeUploadAdapter adapter;
  std::vector<std::string> answers;
};

TEST(UploadAdapter, carriesARecordingToTheService) {
  UploadWorld machine;
  Recording recording(machine, MacUploadSourceType::audio);
  recording.adapter.setTempFileId("temp-1");
  recording.initialize();
  machine.advance(1s);
  EXPECT_EQ(recording.adapter.fileId(), "file-1");
  recording.send(1);
  recording.send(2, "b");
  machine.advance(1s);
  recording.finalize();
  machine.advance(1s);
  EXPECT_THAT(recording.answers, ElementsAre("init: ok", testing::_, testing::_, "end: ok"));
  EXPECT_EQ(machine.object("file-1"), "aaaab");
  EXPECT_EQ(machine.service.uploads.at("file-1").source, "multipart-upload-audio-macos");
  EXPECT_EQ(machine.process->posted[0].userInfo.find("tempFileId")->asString()->c_str(), std::string("temp-1"));
}

TEST(UploadAdapter, countsUploadedPendingAndFailedParts) {
  UploadWorld machine;
  Recording recording(machine);
  recording.initialize();
  machine.advance(1s);
  machine.world.network.fate = [](const SimExchange& exchange) {
    if (UploadWorld::isPut(exchange, 4)) return SimFate{.latency = 100s};
    if (UploadWorld::isPut(exchange, 5)) return SimFate{.kind = SimFate::Kind::requestLost};
    return SimFate{};
  };
  for (int part = 1; part <= 5; ++part) recording.send(part);
  machine.advance(1s);
  recording.finalize();
  EXPECT_EQ(machine.manager().activeSession()->totalPartsExpected, 5);
  EXPECT_EQ(machine.manager().activeSession()->uploadedParts.size(), 3u);
}

TEST(UploadAdapter, usesTheActiveSessionOnlyWhenItNeverAskedForItsOwn) {
  UploadWorld machine;
  Recording silent(machine);
  silent.send(1);
  silent.finalize();
  machine.advance(1s);
  EXPECT_THAT(silent.answers,
              testing::UnorderedElementsAre("1: No active upload session", "end: No active upload session"));
  silent.answers.clear();
  machine.start();
  silent.send(1);
  machine.advance(1s);
  silent.finalize();
  machine.advance(1s);
  EXPECT_THAT(silent.answers, ElementsAre("1: ok", "end: ok"));
}

TEST(UploadAdapter, keepsTheBytesOfARecordingThatGotNoSessionOutOfTheOneBefore) {
  UploadWorld machine;
  Recording first(machine);
  first.initialize();
  machine.advance(1s);
  first.send(1);
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

TEST(UploadAdapter, answersEverythingOnceWhenTheProcessEnds) {
  UploadWorld machine;
  Recording opening(machine);
  opening.initialize();
  Recording recording(machine);
  machine.advance(1s);
  recording.initialize();
  machine.advance(1s);
  opening.send(1);
  machine.advance(1s);
  machine.world.network.setRoute(false);
  opening.send(2);
  opening.finalize();
  machine.world.network.fate = [](const SimExchange&) { return SimFate{.latency = 10s}; };
  machine.world.network.setRoute(true);
  recording.send(1);
  machine.endOrderly();
  EXPECT_THAT(opening.answers, ElementsAre("init: ok", "1: ok", "2: Upload session was interrupted",
                                           "end: Upload session was interrupted"));
  EXPECT_THAT(recording.answers, ElementsAre("init: ok", "1: Upload session was interrupted"));
}

}  // namespace
}  // namespace quillbeam
