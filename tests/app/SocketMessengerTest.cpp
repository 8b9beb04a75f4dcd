#include "app/SocketMessenger.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app/SocketMessengerClient.h"
#include "app/WatchedSockets.h"
#include "base/TaskScope.h"
#include "channels/EventChannel.h"
#include "channels/EventSubscription.h"
#include "channels/MethodChannel.h"
#include "platform/sim/SimDispatch.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

const Path path = "/run/user/1000/native.sock";

struct World {
  SimDispatch dispatch;
  test::WatchedSockets sockets;
  std::unique_ptr<SocketMessenger> native = SocketMessenger::listen(sockets, path, dispatch.main()).value();

  /// A client and the hold on its wire.
  struct Connected {
    std::unique_ptr<SocketMessengerClient> messenger;
    LocalConnection* wire;
  };
  Connected connect() {
    auto messenger = SocketMessengerClient::connect(sockets, path, dispatch.main()).value();
    dispatch.runUntilIdle();
    return {std::move(messenger), sockets.last};
  }
  std::shared_ptr<std::string> call(BinaryMessenger& client, const std::string& channel, const std::string& method,
                                    const Value& arguments = {}) {
    auto answer = std::make_shared<std::string>("nothing yet");
    MethodChannel(client, channel).invoke(method, arguments, [answer](Result<MethodReply> reply) {
      if (!reply) {
        *answer = reply.error().description();
      } else if (const Value* value = std::get_if<Value>(&*reply)) {
        *answer = value->asString() == nullptr ? "a value" : *value->asString();
      } else {
        *answer = "not a value";
      }
    });
    return answer;
  }
};

/// A channel on the native side that answers "echo" with its arguments and leaves "wait" unanswered.
struct Echo {
  explicit Echo(BinaryMessenger& messenger) : channel(messenger, "echo") {
    channel.setCallHandler([this](MethodCall call, MethodResult result) {
      ++calls;
      if (call.method == "echo") return result.success(call.arguments);
      waiting.push_back(std::move(result));
    });
  }
  int calls = 0;
  std::vector<MethodResult> waiting;
  MethodChannel channel;
};

struct Ticks final : StreamHandler {
  std::optional<MethodError> onListen(const Value&, EventSink newSink) override {
    sink = newSink;
    return std::nullopt;
  }
  void onCancel() override { sink.reset(); }
  std::optional<EventSink> sink;
};

TEST(SocketMessenger, answersSeveralClientsAtOnce) {
  World world;
  Echo echo(*world.native);
  const auto first = world.connect();
  const auto second = world.connect();

  const auto one = world.call(*first.messenger, "echo", "echo", "one");
  const auto large = world.call(*second.messenger, "echo", "echo", std::string(3'000'000, 'x'));
  const auto nobody = world.call(*second.messenger, "nobody", "echo");
  world.dispatch.runUntilIdle();

  EXPECT_EQ(*one, "one");
  EXPECT_EQ(*large, std::string(3'000'000, 'x'));
  EXPECT_EQ(*nobody, "not a value");
  EXPECT_EQ(world.native->clientCount(), 2u);
}

TEST(SocketMessenger, callsEveryClientWithoutWaiting) {
  World world;
  std::vector<std::string> heard;
  const auto first = world.connect();
  const auto second = world.connect();
  MethodChannel onFirst(*first.messenger, "events"), onSecond(*second.messenger, "events");
  onFirst.setCallHandler([&](MethodCall call, MethodResult) { heard.push_back("first " + call.method); });
  onSecond.setCallHandler([&](MethodCall call, MethodResult) { heard.push_back("second " + call.method); });

  MethodChannel(*world.native, "events").invoke("started");
  world.dispatch.runUntilIdle();

  std::ranges::sort(heard);
  EXPECT_EQ(heard, (std::vector<std::string>{"first started", "second started"}));
}

TEST(SocketMessenger, forgetsAClientThatDies) {
  World world;
  Echo echo(*world.native);
  Ticks ticks;
  EventChannel events(*world.native, "ticks", ticks);
  auto dying = world.connect();
  EventSubscription subscription(*dying.messenger, "ticks", {[](Value) {}, [](MethodError) {}, [] {}});
  const auto pending = world.call(*dying.messenger, "echo", "wait");
  world.dispatch.runUntilIdle();
  ASSERT_TRUE(ticks.sink);
  ASSERT_EQ(echo.waiting.size(), 1u);

  world.sockets.sim.disconnect(*dying.wire);
  world.dispatch.runUntilIdle();

  EXPECT_FALSE(ticks.sink) << "the last listener's death cancels the stream";
  EXPECT_EQ(world.native->clientCount(), 0u);
  echo.waiting.front().success("to nobody");
  EXPECT_EQ(*pending, "The other side is gone");
  world.dispatch.runUntilIdle();
}

TEST(SocketMessenger, disconnectsOnlyTheClientThatTalksGarbage) {
  World world;
  Echo echo(*world.native);
  const auto good = world.connect();
  auto bad = world.sockets.connect(path, world.dispatch.main()).value();
  bool badClosed = false;
  bad->start([](ByteSpan) {}, [&] { badClosed = true; });
  world.dispatch.runUntilIdle();
  ASSERT_EQ(world.native->clientCount(), 2u);

  const std::string garbage = "GET / HTTP/1.1\r\n\r\n";
  bad->send(ByteChain(Bytes(garbage.begin(), garbage.end())));
  const auto answer = world.call(*good.messenger, "echo", "echo", "still here");
  world.dispatch.runUntilIdle();

  EXPECT_TRUE(badClosed);
  EXPECT_EQ(world.native->clientCount(), 1u);
  EXPECT_EQ(*answer, "still here");
}

TEST(SocketMessenger, disconnectsAClientThatDoesNotRead) {
  World world;
  Ticks ticks;
  EventChannel events(*world.native, "ticks", ticks);
  const auto stuck = world.connect();
  const auto awake = world.connect();
  int heard = 0;
  const auto listen = [&](const World::Connected& client) {
    return std::make_unique<EventSubscription>(
        *client.messenger, "ticks", EventSubscription::Listener{[&](Value) { ++heard; }, [](MethodError) {}, [] {}});
  };
  const auto onStuck = listen(stuck);
  const auto onAwake = listen(awake);
  world.dispatch.runUntilIdle();
  world.sockets.sim.stallReading(*stuck.wire);

  for (int i = 0; i < 40; ++i) {
    ticks.sink->success(Value::Bytes(1 << 20));
    world.dispatch.runUntilIdle();
  }

  EXPECT_EQ(heard, 40);
  EXPECT_EQ(world.native->clientCount(), 1u);
  EXPECT_TRUE(ticks.sink) << "the other one still listens";
  world.sockets.sim.resumeReading(*stuck.wire);
  world.dispatch.runUntilIdle();
  EXPECT_FALSE(stuck.messenger->isConnected());
}

TEST(SocketMessenger, letsTheLastRepliesOutBeforeItGoes) {
  World world;
  TaskScope tasks(world.dispatch.main());
  Echo echo(*world.native);
  const auto client = world.connect();
  const auto stuck = world.connect();
  world.sockets.sim.stallReading(*stuck.wire);
  const auto answer = world.call(*client.messenger, "echo", "wait");
  world.call(*stuck.messenger, "echo", "echo", std::string(1'000'000, 'x'));
  world.dispatch.runUntilIdle();

  echo.waiting.front().success("goodbye");
  bool ended = false;
  tasks.start(world.native->shutDown(2s), [&](Result<void>) { ended = true; });
  world.dispatch.runUntilIdle();

  EXPECT_EQ(*answer, "goodbye");
  EXPECT_FALSE(client.messenger->isConnected());
  EXPECT_FALSE(ended) << "one client has not read its reply";
  EXPECT_EQ(SocketMessengerClient::connect(world.sockets, path, world.dispatch.main()).error().description(),
            describe(LocalSocketError::notListening));
  world.dispatch.advance(2s);
  EXPECT_TRUE(ended);
}

TEST(SocketMessengerClient, failsWaitingAndLaterCallsWhenTheConnectionIsLost) {
  World world;
  auto echo = std::make_unique<Echo>(*world.native);
  const auto client = world.connect();
  const auto waiting = world.call(*client.messenger, "echo", "wait");
  world.dispatch.runUntilIdle();

  echo->waiting.clear();
  echo.reset();
  world.native.reset();
  world.dispatch.runUntilIdle();
  const auto later = world.call(*client.messenger, "echo", "echo");
  EXPECT_EQ(*later, "nothing yet") << "never inside the call";
  world.dispatch.runUntilIdle();

  EXPECT_EQ(*waiting, "not a value") << "dropping the result answers it";
  EXPECT_EQ(*later, "The other side is gone");
  EXPECT_FALSE(client.messenger->isConnected());
}

TEST(SocketMessengerClient, givesUpOnAServerThatDoesNotSpeakFrames) {
  World world;
  std::unique_ptr<LocalConnection> strange;
  const auto listener = world.sockets
                            .listen("/tmp/strange.sock", world.dispatch.main(),
                                    [&](std::unique_ptr<LocalConnection> connection) {
                                      strange = std::move(connection);
                                      strange->start([](ByteSpan) {}, [] {});
                                    })
                            .value();
  const auto client = SocketMessengerClient::connect(world.sockets, "/tmp/strange.sock", world.dispatch.main()).value();
  const auto answer = world.call(*client, "echo", "echo");
  world.dispatch.runUntilIdle();
  strange->send(ByteChain(Bytes{'2', '2', '0', ' ', 'h', 'i', '\r', '\n'}));
  world.dispatch.runUntilIdle();
  EXPECT_EQ(*answer, "The other side is gone");
}

}  // namespace
}  // namespace quillbeam
