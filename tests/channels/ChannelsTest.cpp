#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "channels/Arguments.h"
#include "channels/EventChannel.h"
#include "channels/EventSubscription.h"
#include "channels/InProcessMessenger.h"
#include "channels/MethodChannel.h"
#include "channels/MethodTable.h"
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

TEST(MethodChannel, callsEveryClientAndWaitsForNone) {
  World world;
  std::vector<std::string> heard;
  const auto first = world.client();
  const auto second = world.client();
  MethodChannel onFirst(*first, "events"), onSecond(*second, "events");
  onFirst.setCallHandler([&](MethodCall call, MethodResult result) {
    heard.push_back("first " + call.method);
    result.success();
  });
  onSecond.setCallHandler([&](MethodCall call, MethodResult result) {
    heard.push_back("second " + call.method + " " + call.arguments.at("fileId").asString()->c_str());
    result.success();
  });
  world.queue.run([&] { MethodChannel(world.native, "events").invoke("started", ValueMap{{"fileId", "f1"}}); });
  EXPECT_TRUE(heard.empty());
  world.settle();
  EXPECT_EQ(heard, (std::vector<std::string>{"first started", "second started f1"}));
}

TEST(MethodChannel, callsFailWhenTheNativeSideGoesAndAnswersToGoneClientsAreDropped) {
  auto world = std::make_unique<World>();
  auto native = std::make_unique<InProcessMessenger>(world->queue);
  auto client = world->onQueue([&] { return native->connectClient(); });
  auto leaving = world->onQueue([&] { return native->connectClient(); });
  std::vector<MethodResult> held;
  auto channel = std::make_unique<MethodChannel>(*native, "room");
  channel->setCallHandler([&](MethodCall, MethodResult result) { held.push_back(std::move(result)); });
  const auto pending = call(*world, *client, "room", "wait");
  const auto dropped = call(*world, *leaving, "room", "wait");
  world->settle();
  ASSERT_EQ(held.size(), 2u);

  world->queue.run([&] {
    leaving.reset();
    held[1].success("to nobody");
    channel.reset();
    native.reset();
  });
  world->settle();
  const auto tooLate = call(*world, *client, "room", "wait");
  world->settle();

  EXPECT_EQ(*pending, "failed: The other side is gone");
  EXPECT_EQ(*tooLate, "failed: The other side is gone");
  EXPECT_EQ(*dropped, "failed: The other side is gone");
  world->queue.run([&] { held.clear(); });
}

TEST(MethodChannel, turnsAReplyThatIsTooLargeIntoAnError) {
  World world;
  const auto client = world.client();
  MethodChannel channel(world.native, "room");
  channel.setCallHandler(
      [](MethodCall, MethodResult result) { result.success(Value::Bytes(BinaryMessenger::largestMessage)); });
  const auto answer = call(world, *client, "room", "all");
  world.settle();
  EXPECT_EQ(*answer, "REPLY_TOO_LARGE: The reply is too large to be sent");
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

TEST(EventSubscription, saysSoWhenNothingStreamsOrTheNativeSideIsLost) {
  World world;
  Ear nothing(world);
  world.settle();
  EXPECT_EQ(nothing.heard, "error NOT_IMPLEMENTED;end;");

  auto native = std::make_unique<InProcessMessenger>(world.queue);
  Tones tones;
  auto channel = std::make_unique<EventChannel>(*native, "tones", tones);
  auto client = world.onQueue([&] { return native->connectClient(); });
  std::string heard;
  std::optional<EventSubscription> subscription;
  world.queue.run([&] {
    subscription.emplace(
        *client, "tones",
        EventSubscription::Listener{[&](Value) { heard += "event;"; },
                                    [&](MethodError error) { heard += error.code + ";"; }, [&] { heard += "end;"; }});
  });
  world.settle();
  world.queue.run([&] {
    channel.reset();
    native.reset();
  });
  world.settle();
  EXPECT_EQ(heard, "event;CONNECTION_LOST;end;");
}

class Door {
 public:
  void open(Value arguments, MethodResult result) { result.success(Value(arguments.at("who"))); }
  void close(Value, MethodResult result) { result.error("STUCK"); }
};

TEST(MethodTable, matchesNamesExactly) {
  const MethodTable<Door> methods = {{"open", &Door::open}, {"close", &Door::close}};
  Door door;
  std::string answer;
  const auto dispatch = [&](const std::string& method) {
    return methods.dispatch(door, {method, ValueMap{{"who", "me"}}},
                            MethodResult(method, [&](MethodReply reply) { answer = text(std::move(reply)); }));
  };
  EXPECT_EQ(dispatch("open"), Dispatched::known);
  EXPECT_EQ(answer, "me");
  EXPECT_EQ(dispatch("close"), Dispatched::known);
  EXPECT_EQ(answer, "STUCK: -");
  for (const std::string unknown : {"Open", "open ", "", "ope"}) {
    EXPECT_EQ(dispatch(unknown), Dispatched::unknown);
    EXPECT_EQ(answer, "not implemented");
  }
}

TEST(Arguments, takesOnlyTheTypeThatIsAskedFor) {
  const Value map = ValueMap{{"text", "t"},   {"narrow", 480}, {"wide", std::int64_t{1} << 40},
                             {"real", 0.5},   {"flag", true},  {"map", ValueMap{{"a", 1}}},
                             {"nil", nullptr}};
  const Arguments arguments(map);
  EXPECT_EQ(arguments.string("text"), "t");
  EXPECT_EQ(arguments.integer("narrow"), 480);
  EXPECT_EQ(arguments.integer("wide"), std::int64_t{1} << 40);
  EXPECT_EQ(arguments.number("narrow"), 480.0);
  EXPECT_EQ(arguments.number("real"), 0.5);
  EXPECT_EQ(arguments.boolean("flag"), true);
  EXPECT_EQ(arguments.map("map"), (ValueMap{{"a", 1}}));
  for (const char* key : {"flag", "nil", "missing", "real"}) {
    EXPECT_EQ(arguments.string(key), std::nullopt);
    EXPECT_EQ(arguments.integer(key), std::nullopt);
    EXPECT_EQ(arguments.list(key), std::nullopt);
  }
  EXPECT_EQ(arguments.boolean("narrow"), std::nullopt);
  const Value noMap = "filePath";
  EXPECT_FALSE(Arguments(noMap).isMap());
  EXPECT_EQ(Arguments(noMap).string("filePath"), std::nullopt);
}

}  // namespace
}  // namespace quillbeam
