#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Weakly.h"
#include "channels/MethodChannel.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/NotificationCenter.h"

namespace quillbeam {

/// "io.quillbeam.app.mac_recorder_events": tells the UI layer what becomes of its recordings, one
/// "recordingEntryUpdate" per event. Events come from the recorder's channel and from the process's notifications about
/// uploads. Main queue; sending happens asynchronously on it.
class RecorderEventsChannel {
 public:
  RecorderEventsChannel(BinaryMessenger& messenger, DispatchQueue& main, NotificationCenter& notifications,
                        const Logger& logger);

  /// `extras` stand beside "event" and "fileId" in the map; an extra of the same name wins.
  void emit(const std::string& event, const std::string& fileId, const ValueMap& extras = {});

 private:
  void observe(std::string_view notification, NotificationCenter::Observer observer);
  void forwardUploads();
  void forwardEntryUpdate(const Value& userInfo);

  NotificationCenter& notifications_;
  DispatchQueue& main_;
  const Logger& logger_;
  MethodChannel channel_;
  std::vector<std::unique_ptr<NotificationCenter::Observation>> observations_;
  WeaklyHeld weaklyHeld_;
};

}  // namespace quillbeam
