#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/posix/UnixSockets.h"
#include "platform/sim/SimSockets.h"
#include "support/Worlds.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

/// One end with what it has heard, on the main queue.
struct Peer {
  explicit Peer(std::unique_ptr<LocalConnection> connection) : connection(std::move(connection)) {
    this->connection->start([this](ByteSpan bytes) { heard.append(bytes.begin(), bytes.end()); },
                            [this] { ++closings; });
  }
  void say(std::string_view text) { connection->send(ByteChain(Bytes(text.begin(), text.end()))); }

  std::string heard;
  int closings = 0;
  std::unique_ptr<LocalConnection> connection;
};

class LocalSocketConformance : public ConformanceTest {
 protected:
  LocalSocketConformance() {
    if (isSim()) {
      sockets_ = std::make_unique<SimSockets>();
    } else {
      sockets_ = std::make_unique<UnixSockets>();
    }
  }

  LocalSockets& sockets() { return *sockets_; }
  Path path() const { return joined(directory_.path(), "socket"); }
  std::unique_ptr<LocalListener> listen() {
    auto listener = sockets_->listen(path(), dispatch().main(), [this](std::unique_ptr<LocalConnection> connection) {
      accepted.push_back(std::make_unique<Peer>(std::move(connection)));
    });
    EXPECT_TRUE(listener) << listener.error().description();
    return listener ? std::move(*listener) : nullptr;
  }
  std::unique_ptr<Peer> connect() {
    auto connection = sockets_->connect(path(), dispatch().main());
    EXPECT_TRUE(connection) << connection.error().description();
    return connection ? std::make_unique<Peer>(std::move(*connection)) : nullptr;
  }
  bool waitFor(const std::function<bool()>& condition) { return world().waitUntil(condition); }

 private:
  TestDirectory directory_;
  std::unique_ptr<LocalSockets> sockets_;

 protected:
  std::vector<std::unique_ptr<Peer>> accepted;
};
QB_ON_BOTH_WORLDS(LocalSocketConformance);

TEST_P(LocalSocketConformance, carriesBytesBothWaysInOrder) {
  const auto listener = listen();
  const auto client = connect();
  std::string long_(3'000'000, '.');
  for (std::size_t i = 0; i < long_.size(); ++i) long_[i] = static_cast<char>('a' + i % 23);
  client->say("hello ");
  client->say(long_);
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 1; }));
  accepted[0]->say("welcome");
  ASSERT_TRUE(waitFor([&] { return accepted[0]->heard.size() == long_.size() + 6; }));
  EXPECT_TRUE(accepted[0]->heard == "hello " + long_);
  ASSERT_TRUE(waitFor([&] { return client->heard == "welcome"; }));
  EXPECT_EQ(client->connection->unsentBytes(), 0u);
}

TEST_P(LocalSocketConformance, closesOnceAfterEverythingThePeerSentBeforeItWent) {
  const auto listener = listen();
  auto client = connect();
  client->say("last words");
  client->connection->closeAfterSending(10s);
  ASSERT_TRUE(waitFor([&] { return client->closings == 1; }));
  client.reset();
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 1 && accepted[0]->closings == 1; }));
  EXPECT_EQ(accepted[0]->heard, "last words");
  accepted[0]->say("into the void");
  world().letPass(20ms);
  EXPECT_EQ(accepted[0]->closings, 1);
}

TEST_P(LocalSocketConformance, aConnectionThatIsDestroyedIsGoneForThePeerAndSilent) {
  const auto listener = listen();
  auto client = connect();
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 1; }));
  accepted[0]->say("never heard");
  client->connection.reset();
  ASSERT_TRUE(waitFor([&] { return accepted[0]->closings == 1; }));
  EXPECT_EQ(client->closings, 0);
}

TEST_P(LocalSocketConformance, mayBeDestroyedInsideItsOwnCallbacks) {
  const auto listener = listen();
  const auto client = connect();
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 1; }));
  std::unique_ptr<LocalConnection> connection = *sockets().connect(path(), dispatch().main());
  int calls = 0;
  connection->start(
      [&](ByteSpan) {
        ++calls;
        connection.reset();
      },
      [&] { ++calls; });
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 2; }));
  accepted[1]->say("one");
  ASSERT_TRUE(waitFor([&] { return accepted[1]->closings == 1; }));
  EXPECT_EQ(calls, 1);
}

TEST_P(LocalSocketConformance, aReaderThatDoesNotReadCostsBytesNotTimeAndTheDeadlineEndsIt) {
  const auto listener = listen();
  // Connected but never started: it reads nothing.
  const auto reader = sockets().connect(path(), dispatch().main());
  ASSERT_TRUE(waitFor([&] { return accepted.size() == 1; }));
  accepted[0]->connection->send(ByteChain(Bytes(4'000'000, 7)));
  world().letPass(20ms);
  EXPECT_GT(accepted[0]->connection->unsentBytes(), 2'000'000u);
  EXPECT_LT(accepted[0]->connection->unsentBytes(), 4'000'000u);
  accepted[0]->connection->closeAfterSending(50ms);
  ASSERT_TRUE(waitFor([&] { return accepted[0]->closings == 1; }));
}

TEST_P(LocalSocketConformance, refusesWhatCannotWork) {
  EXPECT_TRUE(sockets().connect(path(), dispatch().main()).error().is(LocalSocketError::notListening));
  const Path tooLong = path() + std::string(107, 'x');
  EXPECT_TRUE(sockets().connect(tooLong, dispatch().main()).error().is(LocalSocketError::pathTooLong));
  EXPECT_TRUE(sockets().listen(tooLong, dispatch().main(), {}).error().is(LocalSocketError::pathTooLong));
  auto listener = listen();
  EXPECT_TRUE(sockets().listen(path(), dispatch().main(), {}).error().is(LocalSocketError::inUse));
  listener.reset();
  EXPECT_TRUE(sockets().connect(path(), dispatch().main()).error().is(LocalSocketError::notListening));
  EXPECT_TRUE(listen()) << "the place is free again";
}

}  // namespace
}  // namespace quillbeam
