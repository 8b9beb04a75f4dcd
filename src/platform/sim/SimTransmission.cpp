#include "platform/sim/SimTransmission.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

SimTransmission::SimTransmission(SimNetwork& network, HttpRequest request, SimLimits limits, Ended ended)
    : network_(network), request_(std::move(request)), limits_(limits), ended_(std::move(ended)) {}

SimTransmission::SimTransmission(SimNetwork& network, HttpRequest request, Bytes body, SimLimits limits, Ended ended)
    : network_(network),
      request_(std::move(request)),
      fileBody_(std::move(body)),
      limits_(limits),
      ended_(std::move(ended)) {}

void SimTransmission::start() {
  fate_ = network_.fateOf(exchange());
  started_ = network_.time();
  const Duration limit = std::min(sendingTime() + limits_.idle, limits_.resource);
  timesOut_ = fate_.kind == SimFate::Kind::stalled || limit < fate_.latency;
  const Duration ending = timesOut_ ? limit : fate_.latency;
  if (reachesServer() && fate_.latency / 2 <= ending) {
    reach_ = after(fate_.latency / 2, &SimTransmission::reachServer);
  }
  end_ = after(ending, &SimTransmission::end);
}

SimExchange SimTransmission::exchange() const {
  if (fileBody_) return {.request = request_, .body = *fileBody_, .isTransfer = true};
  if (!request_.body) return {.request = request_, .body = {}};
  return {.request = request_,
          .body = {reinterpret_cast<const std::uint8_t*>(request_.body->data()), request_.body->size()}};
}

bool SimTransmission::reachesServer() const {
  return fate_.kind == SimFate::Kind::answered || fate_.kind == SimFate::Kind::answerLost;
}

std::int64_t SimTransmission::sendableBytes() const {
  const auto size = static_cast<std::int64_t>(exchange().body.size());
  if (fate_.kind == SimFate::Kind::stalled) return size / 2;
  const bool isConnected = fate_.kind != SimFate::Kind::requestLost || fate_.error == NetworkError::connectionLost;
  return isConnected ? size : 0;
}

Duration SimTransmission::sendingTime() const {
  if (!fileBody_ || sendableBytes() == 0) return Duration::zero();
  return fate_.kind == SimFate::Kind::stalled ? fate_.latency / 4 : fate_.latency / 2;
}

std::int64_t SimTransmission::bytesSent() const {
  const Duration elapsed = network_.time() - started_;
  if (elapsed >= sendingTime()) return sendableBytes();
  return static_cast<std::int64_t>(static_cast<double>(sendableBytes()) * (elapsed / std::chrono::duration<double>(1)) /
                                   (sendingTime() / std::chrono::duration<double>(1)));
}

TimerHandle SimTransmission::after(Duration delay, void (SimTransmission::*step)()) {
  // The server and the owner may let go of this in the middle of a step.
  return network_.wire().after(delay, [weak = weak_from_this(), step] {
    if (const auto self = weak.lock()) (*self.*step)();
  });
}

void SimTransmission::reachServer() {
  if (network_.server) response_ = network_.server(exchange());
}

void SimTransmission::end() { std::exchange(ended_, {})(outcome()); }

SimTransmission::Outcome SimTransmission::outcome() {
  if (timesOut_) return NetworkError::timedOut;
  switch (fate_.kind) {
    case SimFate::Kind::answered:
      if (!response_) return NetworkError::connectionLost;  // the server went away meanwhile
      return std::move(response_);
    case SimFate::Kind::noAnswer:
      return std::nullopt;
    case SimFate::Kind::requestLost:
    case SimFate::Kind::answerLost:
    case SimFate::Kind::stalled:
      return fate_.error;
  }
  std::unreachable();
}

}  // namespace quillbeam
