#include <gtest/gtest.h>

#include <memory>

#include "channels/EventChannel.h"
#include "channels/EventSubscription.h"
#include "channels/InProcessMessenger.h"
#include "channels/MethodChannel.h"
#include "support/ManualExecutor.h"

namespace quillbeam {
namespace {

/// The native side and its queue; everything happens on the queue, in `onQueue` and `settle`.
struct World {
  test::ManualExecutor queue;
  InProcessMessenger native{queue};

  template <class Work>
  auto onQueue(Work work) {
    std::optional<decltype(work())> result;
    queue.run([&] { result.emplace(work()); });
    return *std::move(result);
  }
  std::unique_ptr<BinaryMessenger> client() {
    return onQueue([&] { return native.connectClient(); });
  }
  void settle() { queue.runAll(); }
};

std::string text(const Result<MethodReply>& reply) {
  if (!reply) return "failed: " + reply.error().description();
  if (std::holds_alternative<NotImplemented>(*reply)) return "not implemented";
  if (const auto* error = std::get_if<MethodError>(&*reply)) return error->code + ": " + error->message.value_or("-");
  const std::string* string = std::get<Value>(*reply).asString();
  return string == nullptr ? "a value" : *string;
}

/// Calls a method and notes the answer when it comes.
std::shared_ptr<std::string> call(World& world, BinaryMessenger& client, const std::string& channel,
                                  const std::string& method, const Value& arguments = {}) {
  auto answer = std::make_shared<std::string>("nothing yet");
  world.queue.run([&] {
    MethodChannel(client, channel).invoke(method, arguments, [answer](Result<MethodReply> reply) {
      *answer = text(reply);
    });
  });
  return answer;
}

TEST(MethodChannel, answersCallsWithWhateverTheHandlerDecides) {
  World world;
  const auto client = world.client();
  std::optional<MethodResult> later;
  MethodChannel channel(world.native, "room");
  channel.setCallHandler([&](MethodCall call, MethodResult result) {
    if (call.method == "echo") return result.success(call.arguments);
    if (call.method == "fail") return result.error("NO", "not today", call.arguments);
    if (call.method == "wait") return void(later.emplace(std::move(result)));
    if (call.method == "forget") return;
    result.notImplemented();
  });

  const auto echo = call(world, *client, "room", "echo", "hello");
  EXPECT_EQ(*echo, "nothing yet") << "delivery is asynchronous";
  const auto fail = call(world, *client, "room", "fail");
  const auto wait = call(world, *client, "room", "wait");
  const auto forget = call(world, *client, "room", "forget");
  const auto unknown = call(world, *client, "room", "Echo");
  const auto nobody = call(world, *client, "another room", "echo");
  world.settle();

  EXPECT_EQ(*echo, "hello");
  EXPECT_EQ(*fail, "NO: not today");
  EXPECT_EQ(*forget, "NO_REPLY: The handler of \"forget\" ended without an answer");
  EXPECT_EQ(*unknown, "not implemented");
  EXPECT_EQ(*nobody, "not implemented");
  EXPECT_EQ(*wait, "nothing yet");
  world.queue.run([&] {
    later->success("at last");
    later->error("AGAIN");
  });
  world.settle();
  EXPECT_EQ(*wait, "at last");
}

TEST(MethodChannel, answersAMessageThatIsNoCallWithAnError) {
  World world;
  const auto client = world.client();
  MethodChannel channel(world.native, "room");
  channel.setCallHandler([](MethodCall, MethodResult) { FAIL() << "this was no call"; });
  std::string answer;
  world.queue.run([&] {
    client->send(PeerId::native(), "room", Bytes{0xFF, 1, 2},
                 [&](Result<Bytes> reply) { answer.assign(reply->begin(), reply->end()); });
  });
  world.settle();
  EXPECT_NE(answer.find("MALFORMED_CALL"), std::string::npos);
}

/// A producer whose test emits through `sink`.
struct Tones final : StreamHandler {
  std::optional<MethodError> onListen(const Value& arguments, EventSink newSink) override {
    ++starts;
    lastArguments = arguments;
    if (refusal) return refusal;
    sink = newSink;
    sink->success("first");
    return std::nullopt;
  }
  void onCancel() override { ++cancels; }

  int starts = 0;
  int cancels = 0;
  Value lastArguments;
  std::optional<MethodError> refusal;
  std::optional<EventSink> sink;
};

/// A client process that listens and notes what it hears.
struct Ear {
  explicit Ear(World& world, const Value& arguments = {}) : world(world), messenger(world.client()) {
    world.queue.run([&] {
      const auto note = [this](std::string what) { heard += what + ";"; };
      subscription.emplace(*messenger, "tones",
                           EventSubscription::Listener{[note](Value event) { note(*event.asString()); },
                                                       [note](MethodError error) { note("error " + error.code); },
                                                       [note] { note("end"); }},
                           arguments);
    });
  }
  ~Ear() { disconnect(); }
  void cancel() {
    world.queue.run([&] { subscription.reset(); });
  }
  void disconnect() {
    cancel();
    world.queue.run([&] { messenger.reset(); });
  }

  World& world;
  std::unique_ptr<BinaryMessenger> messenger;
  std::string heard;
  std::optional<EventSubscription> subscription;
};

void emit(World& world, const Tones& tones, const Value& event) {
  world.queue.run([&] { tones.sink->success(event); });
  world.settle();
}

TEST(EventChannel, startsForTheFirstListenerAndCancelsAfterTheLast) {
  World world;
  Tones tones;
  EventChannel channel(world.native, "tones", tones);

  Ear first(world, "loud");
  world.settle();
  Ear second(world, "soft");
  world.settle();
  emit(world, tones, "a");
  EXPECT_EQ(tones.starts, 1);
  EXPECT_EQ(tones.lastArguments, Value("loud"));
  EXPECT_EQ(first.heard, "first;a;");
  EXPECT_EQ(second.heard, "a;");

  first.cancel();
  world.settle();
  emit(world, tones, "b");
  EXPECT_EQ(tones.cancels, 0);
  EXPECT_EQ(second.heard, "a;b;");

  second.disconnect();
  world.settle();
  EXPECT_EQ(tones.cancels, 1);
  emit(world, tones, "to nobody");
}

TEST(EventChannel, dropsEventsOfAStreamThatIsOverEvenWhenTheNextOneRuns) {
  World world;
  Tones tones;
  EventChannel channel(world.native, "tones", tones);
  {
    Ear early(world);
    world.settle();
  }
  world.settle();
  const EventSink stale = *tones.sink;
  Ear late(world);
  world.settle();
  world.queue.run([&] { stale.success("stale"); });
  emit(world, tones, "fresh");
  EXPECT_EQ(late.heard, "first;fresh;");
  EXPECT_EQ(tones.starts, 2);
}

TEST(EventChannel, endsTheStreamForAllAndStartsANewOneForTheNextListener) {
  World world;
  Tones tones;
  EventChannel channel(world.native, "tones", tones);
  Ear first(world);
  Ear second(world);
  world.settle();
  world.queue.run([&] {
    tones.sink->error("HICCUP");
    tones.sink->endOfStream();
    tones.sink->success("after the end");
  });
  world.settle();
  EXPECT_EQ(first.heard, "first;error HICCUP;end;");
  EXPECT_EQ(second.heard, "error HICCUP;end;");

  first.cancel();
  Ear third(world);
  world.settle();
  EXPECT_EQ(third.heard, "first;");
  EXPECT_EQ(tones.cancels, 0);
}

TEST(EventChannel, passesARefusalOnAndAsksAgainNextTime) {
  World world;
  Tones tones;
  tones.refusal = MethodError{"NO_MICROPHONE", std::nullopt, nullptr};
  EventChannel channel(world.native, "tones", tones);
  Ear refused(world);
  world.settle();
  EXPECT_EQ(refused.heard, "error NO_MICROPHONE;end;");
  tones.refusal.reset();
  Ear accepted(world);
  world.settle();
  EXPECT_EQ(accepted.heard, "first;");
  EXPECT_EQ(tones.cancels, 0);
}

TEST(EventChannel, cancelsItsStreamWhenItIsDestroyed) {
  World world;
  Tones tones;
  std::optional<EventChannel> channel;
  channel.emplace(world.native, "tones", tones);
  Ear ear(world);
  world.settle();
  world.queue.run([&] { channel.reset(); });
  EXPECT_EQ(tones.cancels, 1);
  emit(world, tones, "nobody there");
  EXPECT_EQ(ear.heard, "first;");
}

TEST(EventSubscription, saysSoWhenNothingStreams) {
  World world;
  Ear nothing(world);
  world.settle();
  EXPECT_EQ(nothing.heard, "error NOT_IMPLEMENTED;end;");
}

}  // namespace
}  // namespace quillbeam
