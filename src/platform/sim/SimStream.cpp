#include "platform/sim/SimStream.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

SimStream::SimStream(std::shared_ptr<SimStreamRules> rules, DispatchQueue& connecting, DispatchQueue& accepting)
    : rules_(std::move(rules)), ends_{End{.queue = &connecting}, End{.queue = &accepting}} {}

void SimStream::start(SimSide side, std::function<void(ByteSpan)> received, std::function<void()> closed) {
  End& self = end(side);
  self.received = std::move(received);
  self.closed = std::move(closed);
  self.started = true;
  arrange(side);
}

void SimStream::send(SimSide side, ByteChain bytes) {
  End& self = end(side);
  if (!self.open || self.closing || !end(other(side)).open) return;
  self.unsent.append(bytes);
  pump(side);
}

void SimStream::closeAfterSending(SimSide side, Duration deadline) {
  End& self = end(side);
  self.closing = true;
  self.deadline = self.queue->after(deadline, [stream = shared_from_this(), side] { stream->close(side); });
  pump(side);
}

/// The system takes what fits.
void SimStream::pump(SimSide sender) {
  End& from = end(sender);
  End& to = end(other(sender));
  if (!from.open) return;
  const std::size_t room = rules_->capacity - std::min(rules_->capacity, to.incoming.size());
  if (to.open) {
    to.incoming.append(from.unsent.takeFront(room));
  } else {
    from.unsent.clear();
  }
  arrange(other(sender));
  if (from.closing && from.unsent.empty()) close(sender);
}

/// Lets the next cut (or the end) arrive, when there is one and the reader reads.
void SimStream::arrange(SimSide reader) {
  End& self = end(reader);
  const bool ended = !end(other(reader)).open;
  if (!self.open || !self.started || self.reading == SimReading::stalled || self.deliveryDue) return;
  if (self.incoming.empty() && !ended) return;
  self.deliveryDue = true;
  self.delivery =
      self.queue->after(rules_->latency, [stream = shared_from_this(), reader] { stream->deliver(reader); });
}

void SimStream::deliver(SimSide reader) {
  const auto kept = shared_from_this();  // the callback may destroy the connection
  End& self = end(reader);
  self.deliveryDue = false;
  if (!self.open || self.reading == SimReading::stalled) return;
  if (self.incoming.empty()) return close(reader);
  const Bytes cut = self.incoming.takeFront(1 + rules_->random.below(self.incoming.size())).flattened();
  const auto received = self.received;
  if (received) received(cut);
  pump(other(reader));
  arrange(reader);
}

void SimStream::close(SimSide side) {
  End& self = end(side);
  if (!std::exchange(self.open, false)) return;
  self.unsent.clear();
  self.incoming.clear();
  self.queue->async([stream = shared_from_this(), side] {
    const auto closed = stream->end(side).closed;
    if (!stream->end(side).abandoned && closed) closed();
  });
  arrange(other(side));
}

void SimStream::abandon(SimSide side) {
  End& self = end(side);
  self.abandoned = true;
  self.delivery.reset();
  self.deadline.reset();
  const auto received = std::exchange(self.received, nullptr);
  const auto closed = std::exchange(self.closed, nullptr);
  if (!std::exchange(self.open, false)) return;
  self.unsent.clear();
  self.incoming.clear();
  arrange(other(side));
}

void SimStream::setReading(SimSide side, SimReading reading) {
  end(side).reading = reading;
  arrange(side);
}

void SimStream::breakDown() {
  close(SimSide::connecting);
  close(SimSide::accepting);
}

}  // namespace quillbeam
