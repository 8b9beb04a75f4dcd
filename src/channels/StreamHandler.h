#pragma once

#include <optional>

#include "base/Value.h"
#include "channels/EventSink.h"
#include "channels/MethodCall.h"

namespace quillbeam {

/// The producer behind an event channel: started for the first listener, cancelled when the last one is gone.
class StreamHandler {
 public:
  virtual ~StreamHandler() = default;
  /// Starts producing into `sink`, or says why it cannot; then the listener gets that error and there is no stream.
  virtual std::optional<MethodError> onListen(const Value& arguments, EventSink sink) = 0;
  virtual void onCancel() = 0;
};

}  // namespace quillbeam
