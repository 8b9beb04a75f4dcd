#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/sim/SimNetwork.h"

namespace quillbeam {

struct SimLimits {
  Duration idle;
  Duration resource;
};

/// One exchange on the wire, from its start to its one outcome. Taken off the wire by letting go of it. Wire queue.
class SimTransmission : public std::enable_shared_from_this<SimTransmission> {
 public:
  using Outcome = Result<std::optional<HttpResponse>>;
  using Ended = std::function<void(Outcome)>;

  /// An exchange of a session: the body is the request's own.
  SimTransmission(SimNetwork& network, HttpRequest request, SimLimits limits, Ended ended);
  /// An exchange of a background session.
  SimTransmission(SimNetwork& network, HttpRequest request, Bytes body, SimLimits limits, Ended ended);

  void start();
  /// Of the body; those of a session go out at once.
  std::int64_t bytesSent() const;

 private:
  SimExchange exchange() const;
  bool reachesServer() const;
  std::int64_t sendableBytes() const;
  Duration sendingTime() const;
  TimerHandle after(Duration delay, void (SimTransmission::*step)());
  void reachServer();
  void end();
  Outcome outcome();

  SimNetwork& network_;
  const HttpRequest request_;
  const std::optional<Bytes> fileBody_;
  const SimLimits limits_;
  Ended ended_;

  SimFate fate_;
  Duration started_{};
  bool timesOut_ = false;
  std::optional<HttpResponse> response_;
  TimerHandle reach_;
  TimerHandle end_;
};

}  // namespace quillbeam
