#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Value.h"

namespace quillbeam {

class EventChannel;

/// Where a stream's events go: to every client that listens to the channel. Belongs to one run of the stream, from its
/// start to its cancellation or end; afterwards everything given to it is dropped. Copyable; used on the channel's
/// queue.
class EventSink {
 public:
  void success(const Value& event) const;
  void error(std::string code, std::optional<std::string> message = {}, Value details = {}) const;
  /// The stream is over by its own doing; `StreamHandler::onCancel` is not called for it.
  void endOfStream() const;

 private:
  friend class EventChannel;
  struct Stream {
    EventChannel& channel;
  };
  explicit EventSink(std::weak_ptr<Stream> stream) : stream_(std::move(stream)) {}

  std::weak_ptr<Stream> stream_;
};

}  // namespace quillbeam
