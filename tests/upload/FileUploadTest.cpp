#include "upload/FileUpload.h"

#include <gtest/gtest.h>

#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

/// A machine with a file of so many bytes, being uploaded.
struct Upload {
  explicit Upload(std::int64_t size) : machine(1, FileUpload::partSize), source(static_cast<std::size_t>(size)) {
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<std::uint8_t>(i * 31 + (i >> 16));
    EXPECT_TRUE(machine.world.files.createDirectories("/home/user/Videos"));
    EXPECT_TRUE(machine.world.files.writeAtomically("/home/user/Videos/talk.mp4", ByteChain(source)));
    const FileUpload::Request request{"/home/user/Videos/talk.mp4", "team", "folder", "talk", "video/mp4"};
    upload = std::make_unique<FileUpload>(machine.process->platform, machine.manager(), machine.process->notifications,
                                          request);
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
  EXPECT_LE(most, std::size_t{FileUpload::mostUnconfirmedParts});
  EXPECT_GE(most, std::size_t{BackgroundTransferSession::mostRunningTransfers}) << "no slot stays empty";
  EXPECT_TRUE(test.isWhole());
  EXPECT_EQ(test.machine.service.uploads.at("file-1").source, "multipart-upload-file-macos");
}

TEST(FileUpload, abortsWhenAPartCannotBeHandedOver) {
  Upload test(FileUpload::partSize + 1);
  test.machine.world.files.failBelow("/home/user/.local/share/io.quillbeam.app/temp_chunks", ENOSPC);
  const auto ended = test.run();
  EXPECT_TRUE(ended.error().is(MacBackgroundUploadError::failedToWriteTempFile));
  EXPECT_EQ(test.machine.service.uploads.at("file-1").state, SimUpload::State::aborted);
  EXPECT_FALSE(test.machine.manager().activeSession());
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
