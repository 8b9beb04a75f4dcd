#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ChannelNames.h"
#include "app/NativeHalf.h"
#include "app/SocketMessengerClient.h"
#include "channels/MethodChannel.h"
#include "platform/sim/SimWorld.h"

namespace quillbeam {

/// A native half on a simulated machine and a UI layer connected to its socket.
struct Connected {
  explicit Connected(SimWorld& simWorld)
      : world(simWorld),
        platform(simWorld.platform()),
        native(NativeHalf::create(platform, {"serve", defaultSocketPath(platform.places)}).value()),
        client(SocketMessengerClient::connect(platform.localSockets, native->socketPath(), platform.dispatch.main())
                   .value()),
        events(*client, std::string(channel_names::macRecorderEvents)) {
    EXPECT_TRUE(platform.files.createDirectories("/tmp"));
    events.setCallHandler([this](MethodCall call, MethodResult result) {
      EXPECT_EQ(call.method, "recordingEntryUpdate");
      received.push_back(call.arguments);
      result.success();
    });
    world.dispatch.runUntilIdle();
  }

  MethodReply call(std::string_view channel, std::string_view method, Value arguments = {}) {
    std::optional<MethodReply> answer;
    MethodChannel methods(*client, std::string(channel));
    methods.invoke(method, arguments, [&](Result<MethodReply> reply) { answer = std::move(reply).value(); });
    world.dispatch.runUntil([&] { return answer.has_value(); }, std::chrono::minutes(1));
    return answer.value_or(MethodError{"NO_ANSWER"});
  }
  MethodReply startScreen(ValueMap more = {}) {
    ValueMap arguments{{"filePath", "/tmp/meeting.mp4"}, {"config", ValueMap{{"recordingMode", "screen_with_audio"}}}};
    for (const auto& [key, value] : more) arguments.set(key, value);
    return call(channel_names::macRecorder, "startMacRecording", arguments);
  }

  SimWorld& world;
  Platform platform;
  std::unique_ptr<NativeHalf> native;
  std::unique_ptr<SocketMessengerClient> client;
  MethodChannel events;
  std::vector<Value> received;
};

}  // namespace quillbeam
