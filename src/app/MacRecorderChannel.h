#pragma once

#include <string>

#include "app/RecorderEventsChannel.h"
#include "base/TaskScope.h"
#include "channels/MethodChannel.h"
#include "platform/Platform.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// "io.quillbeam.app.mac_recorder": starts, pauses and stops recordings. Starting and stopping are answered from the
/// task that awaited them. Main queue.
class MacRecorderChannel {
 public:
  MacRecorderChannel(BinaryMessenger& messenger, Platform& platform, MacRecorderManager& manager,
                     RecorderEventsChannel& events, const Logger& logger);

 private:
  void start(Value arguments, MethodResult result);
  void stop(Value arguments, MethodResult result);
  void pause(Value arguments, MethodResult result);
  void resume(Value arguments, MethodResult result);
  void status(Value arguments, MethodResult result);
  void answerFailedStop(const Error& error, const std::optional<std::string>& fileId, MethodResult result);
  void emitStarted(const Value& arguments, const std::string& entryId);
  void answerPause(MacRecorderManager::PauseChange change, MethodResult result);

  Platform& platform_;
  MacRecorderManager& manager_;
  RecorderEventsChannel& events_;
  const Logger& logger_;
  MethodChannel channel_;
  TaskScope tasks_;
};

}  // namespace quillbeam
