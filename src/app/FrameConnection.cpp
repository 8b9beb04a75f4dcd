#include "app/FrameConnection.h"

#include <utility>

namespace quillbeam {

FrameConnection::FrameConnection(DispatchQueue& queue, std::unique_ptr<LocalConnection> connection)
    : queue_(queue), connection_(std::move(connection)) {}

void FrameConnection::start(std::function<void(Frame)> received, std::function<void()> closed) {
  received_ = std::move(received);
  closed_ = std::move(closed);
  connection_->start(weakly(this, [](FrameConnection& self, ByteSpan bytes) { self.read(bytes); }),
                     weakly(this, [](FrameConnection& self) { self.giveUp(); }));
}

void FrameConnection::send(Frame frame) {
  if (state_ == State::givenUp) return;
  if (connection_->unsentBytes() > largestBacklog) return giveUp();
  auto bytes = FrameCodec::encode(std::move(frame));
  if (bytes) connection_->send(*std::move(bytes));
}

void FrameConnection::read(ByteSpan bytes) {
  reader_.append(bytes);
  while (state_ == State::open) {
    auto frame = reader_.next();
    if (!frame) return giveUp();
    if (!*frame) return;
    received_(**std::move(frame));
  }
}

void FrameConnection::giveUp() {
  if (std::exchange(state_, State::givenUp) == State::givenUp) return;
  // Later: whoever hears of it destroys the connection, which may be in the middle of delivering or sending.
  queue_.async(weakly(this, [](FrameConnection& self) { std::exchange(self.closed_, nullptr)(); }));
}

}  // namespace quillbeam
