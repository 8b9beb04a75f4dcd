#include "upload/FileUpload.h"

#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using State = MacUploadSessionState;

/// A machine with a file of so many bytes, being uploaded.
struct Upload {
  explicit Upload(std::int64_t size) : machine(1, FileUpload::partSize), source(static_cast<std::size_t>(size)) {
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<std::uint8_t>(i * 31 + (i >> 16));
    EXPECT_TRUE(machine.world.files.createDirectories("/home/user/Videos"));
    EXPECT_TRUE(machine.world.files.writeAtomically("/home/user/Videos/talk.mp4", ByteChain(source)));
    makeUpload();
  }
  void makeUpload(Path file = "/home/user/Videos/talk.mp4") {
    upload = std::make_unique<FileUpload>(machine.process->platform, machine.manager(), machine.process->notifications,
                                          FileUpload::Request{std::move(file), "team", "folder", "talk", "video/mp4"});
  }
  Result<void> run() { return machine.process->await(upload->run()); }
  void begin() {
    machine.process->tasks.start(upload->run(), [this](Result<void> result) { outcome = std::move(result); });
  }
  FileUpload::Status status() { return machine.process->await(upload->status()).value(); }
  bool isWhole() { return machine.service.uploads.at("file-1").object == source; }

  UploadWorld machine;
  Bytes source;
  std::optional<Result<void>> outcome;
  std::unique_ptr<FileUpload> upload;
};

TEST(FileUpload, neverHasMoreThanTheWindowUnconfirmed) {
  Upload test(10 * FileUpload::partSize);
  std::size_t most = 0;
  test.machine.world.network.fate = [&](const SimExchange& exchange) {
    if (const auto session = test.machine.manager().activeSession()) {
      most = std::max(most, session->pendingParts.size() + session->failedParts.size());
      EXPECT_LE(test.machine.partFiles().size(), std::size_t{FileUpload::mostUnconfirmedParts} + 1);
    }
    return SimFate{.latency = exchange.isTransfer ? 3s : 20ms};
  };
  ASSERT_TRUE(test.run());
  EXPECT_EQ(most, std::size_t{FileUpload::mostUnconfirmedParts});
  EXPECT_TRUE(test.isWhole());
  EXPECT_EQ(test.machine.service.uploads.at("file-1").source, "multipart-upload-file-macos");
  const auto status = test.status();
  EXPECT_EQ(status.phase, FileUpload::Phase::ended);
  EXPECT_EQ(status.confirmedParts, 10);
}

TEST(FileUpload, handsAPartOverAgainWhenThatFailed) {
  Upload test(FileUpload::partSize + 1);
  int refusals = 4;
  test.machine.service.interfere = [&](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (!UploadWorld::isCall(exchange, "url") || --refusals < 0) return std::nullopt;
    return HttpResponse{.status = 502};
  };
  ASSERT_TRUE(test.run());
  EXPECT_TRUE(test.isWhole());
}

TEST(FileUpload, abortsWhenAPartCannotBeHandedOver) {
  Upload test(FileUpload::partSize + 1);
  test.machine.world.files.failBelow("/home/user/.local/share/io.quillbeam.app/temp_chunks", ENOSPC);
  const auto ended = test.run();
  EXPECT_TRUE(ended.error().is(MacBackgroundUploadError::failedToWriteTempFile));
  EXPECT_EQ(test.machine.service.uploads.at("file-1").state, SimUpload::State::aborted);
  EXPECT_FALSE(test.machine.manager().activeSession());
}

TEST(FileUpload, reportsThePartThatWasGivenUp) {
  Upload test(FileUpload::partSize + 1);
  test.machine.service.interfere = [](const SimExchange& exchange) -> std::optional<HttpResponse> {
    if (!UploadWorld::isPut(exchange, 1)) return std::nullopt;
    return HttpResponse{.status = 500};
  };
  const auto ended = test.run();
  ASSERT_FALSE(ended);
  EXPECT_TRUE(ended.error().is(FileUploadError::partGivenUp));
  EXPECT_EQ(ended.error().description(), "Part 1 failed 5 times: HTTP error: 500");
  EXPECT_EQ(test.status().lastError, "HTTP error: 500");
}

TEST(FileUpload, refusesWhatIsNoFileToUpload) {
  Upload test(0);
  EXPECT_TRUE(test.run().error().is(FileUploadError::emptyFile));
  test.makeUpload("/home/user/Videos");
  EXPECT_TRUE(test.run().error().is(FileUploadError::notAFile));
  test.makeUpload("/nowhere");
  EXPECT_EQ(test.run().error().code(), ENOENT);
  EXPECT_TRUE(test.machine.service.requests.empty());
}

TEST(FileUpload, abortsWhenTheFileBecomesShorter) {
  Upload test(2 * FileUpload::partSize);
  test.machine.world.network.fate = [&](const SimExchange& exchange) {
    if (UploadWorld::isCall(exchange, "init")) {
      EXPECT_TRUE(test.machine.world.files.writeAtomically("/home/user/Videos/talk.mp4", ByteChain(Bytes(100))));
    }
    return SimFate{};
  };
  EXPECT_TRUE(test.run().error().is(FileUploadError::fileChanged));
  test.machine.advance(1s);
  EXPECT_EQ(test.machine.service.uploads.at("file-1").state, SimUpload::State::aborted);
}

TEST(FileUpload, isAbortedByStoppingItWhileItIsFed) {
  Upload test(9 * FileUpload::partSize);
  test.machine.world.network.fate = [](const SimExchange& exchange) {
    return SimFate{.latency = exchange.isTransfer ? 20s : 20ms};
  };
  test.begin();
  test.machine.advance(5s);
  EXPECT_GT(test.status().bytesInFlight, 0);
  test.upload->stop();
  test.machine.advance(1s);
  ASSERT_TRUE(test.outcome);
  EXPECT_TRUE(test.outcome->error().is(CommonError::cancelled));
  EXPECT_EQ(test.machine.service.uploads.at("file-1").state, SimUpload::State::aborted);
  EXPECT_TRUE(test.machine.partFiles().empty());
}

TEST(FileUpload, goesOnAsLongAsBytesMove) {
  Upload test(FileUpload::partSize / 100);
  test.machine.world.network.fate = [](const SimExchange& exchange) {
    return SimFate{.latency = exchange.isTransfer ? 115s : 20ms};
  };
  test.begin();
  test.machine.advance(100s);
  test.machine.world.network.suspend();
  test.machine.advance(100s);
  EXPECT_FALSE(test.outcome) << "the caller's two minutes are over, the bytes still move";
  test.machine.advance(60s);
  ASSERT_TRUE(test.outcome);
  EXPECT_TRUE(*test.outcome) << test.outcome->error().description();
}

TEST(FileUpload, stopsWaitingAfterTwoMinutesWithoutAByte) {
  Upload test(1000);
  test.begin();
  test.machine.world.dispatch.runUntil([&] { return test.status().phase == FileUpload::Phase::finishing; }, 10s);
  test.machine.world.network.setRoute(false);
  test.machine.advance(110s);
  EXPECT_FALSE(test.outcome);
  test.machine.advance(20s);
  ASSERT_TRUE(test.outcome);
  EXPECT_TRUE(test.outcome->error().is(MacBackgroundUploadError::finalizationTimeout));
  test.machine.world.network.setRoute(true);
  test.machine.advance(1min);
  EXPECT_TRUE(test.isWhole()) << "the session goes on";
}

}  // namespace
}  // namespace quillbeam
