#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "app/SocketMessengerClient.h"
#include "base/Task.h"
#include "channels/MethodCall.h"
#include "platform/Platform.h"

namespace quillbeam::cli {

/// A connection to a native half: calls on its channels. Main queue.
class NativeClient {
 public:
  /// `LocalSocketError`s.
  static Result<std::unique_ptr<NativeClient>> connect(Platform& platform, const Path& socketPath);

  /// `MessengerError::peerGone` when the native half went away before it answered.
  Task<MethodReply> call(std::string channel, std::string method, Value arguments = {});
  /// The value that the method answers; an error whose text is the answer's message (domain "MethodError") otherwise.
  Task<Value> ask(std::string_view channel, std::string method, Value arguments = {});
  BinaryMessenger& messenger() { return *messenger_; }

 private:
  explicit NativeClient(std::unique_ptr<SocketMessengerClient> messenger) : messenger_(std::move(messenger)) {}
  std::unique_ptr<SocketMessengerClient> messenger_;
};

}  // namespace quillbeam::cli
