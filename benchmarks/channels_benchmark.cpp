// What the UI bridge costs: the codec on a typical call and on bulk, and a call's way there and back, in one process
// and over a socket.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "app/SocketMessenger.h"
#include "app/SocketMessengerClient.h"
#include "channels/InProcessMessenger.h"
#include "channels/MethodChannel.h"
#include "channels/StandardMessageCodec.h"
#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/linux/posix/UnixSockets.h"

namespace quillbeam {
namespace {

Value typicalArguments() {
  return ValueMap{{"filePath", "/home/user/.local/share/io.quillbeam.app/recordings/meeting.mp4"},
                  {"teamId", "team-4711"},
                  {"folderId", "recents"},
                  {"fileName", "Weekly meeting"},
                  {"recordingStartTimeMs", std::int64_t{1'773'039'900'000}},
                  {"config", ValueMap{{"systemAudio", true},
                                      {"microphone", true},
                                      {"width", 1920},
                                      {"height", 1080},
                                      {"scale", 1.0},
                                      {"excluded", ValueList{"a", "b"}}}}};
}

Value oneMebibyte() { return Value::Bytes(1 << 20, 0x5A); }

void encodeValue(benchmark::State& state, const Value& value) {
  std::size_t size = 0;
  for (auto _ : state) {
    const Bytes message = StandardMessageCodec::encode(value);
    size = message.size();
    benchmark::DoNotOptimize(message.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

void decodeValue(benchmark::State& state, const Value& value) {
  const Bytes message = StandardMessageCodec::encode(value);
  for (auto _ : state) benchmark::DoNotOptimize(StandardMessageCodec::decode(message));
  state.SetBytesProcessed(static_cast<std::int64_t>(message.size()) * state.iterations());
}

BENCHMARK_CAPTURE(encodeValue, typicalMap, typicalArguments());
BENCHMARK_CAPTURE(decodeValue, typicalMap, typicalArguments());
BENCHMARK_CAPTURE(encodeValue, oneMebibyte, oneMebibyte());
BENCHMARK_CAPTURE(decodeValue, oneMebibyte, oneMebibyte());

/// Calls "echo" over and over, one call at a time; main runs in between.
void callEcho(benchmark::State& state, LinuxDispatch& dispatch, BinaryMessenger& native, BinaryMessenger& client,
              const Value& arguments) {
  MethodChannel echo(native, "echo");
  echo.setCallHandler([](MethodCall call, MethodResult result) { result.success(std::move(call.arguments)); });
  MethodChannel calls(client, "echo");
  for (auto _ : state) {
    bool answered = false;
    calls.invoke("echo", arguments, [&](Result<MethodReply>) { answered = true; });
    while (!answered) {
      pollfd work = {dispatch.mainDescriptor(), POLLIN, 0};
      poll(&work, 1, -1);
      dispatch.drainMain();
    }
  }
}

void callInProcess(benchmark::State& state, const Value& arguments) {
  LinuxDispatch dispatch;
  InProcessMessenger native(dispatch.main());
  const auto client = native.connectClient();
  callEcho(state, dispatch, native, *client, arguments);
}

void callOverSocket(benchmark::State& state, const Value& arguments) {
  LinuxDispatch dispatch;
  UnixSockets sockets;
  std::string directory = "/tmp/channels_benchmark.XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) return state.SkipWithError("no directory for the socket");
  {
    const Path path = directory + "/native.sock";
    auto native = SocketMessenger::listen(sockets, path, dispatch.main());
    auto client = SocketMessengerClient::connect(sockets, path, dispatch.main());
    if (native && client) {
      callEcho(state, dispatch, **native, **client, arguments);
    } else {
      state.SkipWithError("no socket");
    }
  }
  rmdir(directory.c_str());
}

BENCHMARK_CAPTURE(callInProcess, typicalMap, typicalArguments());
BENCHMARK_CAPTURE(callOverSocket, typicalMap, typicalArguments())->UseRealTime();
BENCHMARK_CAPTURE(callInProcess, oneMebibyte, oneMebibyte());
BENCHMARK_CAPTURE(callOverSocket, oneMebibyte, oneMebibyte())->UseRealTime();

}  // namespace
}  // namespace quillbeam
