#pragma once

#include <memory>

#include "platform/LocalSocket.h"
#include "platform/linux/posix/UnixStream.h"

namespace quillbeam {

/// The queue's half of a connection.
class UnixConnection final : public LocalConnection {
 public:
  UnixConnection(std::shared_ptr<UnixStream> stream, DispatchQueue& queue)
      : queue_(queue), stream_(std::move(stream)), receiver_(stream_->receiver()) {}
  ~UnixConnection() override {
    queue_.assertCurrent();
    receiver_->alive = false;
    stream_->abandon();
  }

  void start(std::function<void(ByteSpan)> received, std::function<void()> closed) override {
    queue_.assertCurrent();
    receiver_->received = std::move(received);
    receiver_->closed = std::move(closed);
    stream_->startReading();
  }
  void send(ByteChain bytes) override { stream_->send(std::move(bytes)); }
  std::size_t unsentBytes() const override { return stream_->unsentBytes(); }
  void closeAfterSending(Duration deadline) override {
    queue_.assertCurrent();
    stream_->closeWhenSent();
    deadline_ = queue_.after(deadline, [stream = stream_] { stream->closeNow(); });
  }

 private:
  DispatchQueue& queue_;
  std::shared_ptr<UnixStream> stream_;
  std::shared_ptr<UnixReceiver> receiver_;
  TimerHandle deadline_;
};

}  // namespace quillbeam
