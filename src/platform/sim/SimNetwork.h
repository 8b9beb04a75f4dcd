#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/Files.h"
#include "platform/network/Network.h"
#include "platform/sim/SimDispatch.h"

namespace quillbeam {

class SimBackgroundSession;
class SimHttpSession;

/// One exchange as the far side sees it.
struct SimExchange {
  const HttpRequest& request;
  ByteSpan body;            ///< the request's body or the file's content
  bool isTransfer = false;  ///< made by a background session
};

/// What the simulated wire does to an exchange.
struct SimFate {
  enum class Kind {
    answered,     ///< the server acts, its answer arrives
    requestLost,  ///< the server never sees it; `error` after `latency`
    answerLost,   ///< the server acts; `error` instead of its answer
    stalled,      ///< half of the body goes out, then no byte moves: the idle limit ends it
    noAnswer,     ///< the server never sees it; a transfer completes with no answer at all, a session with
                  ///< `connectionLost`
  };
  Kind kind = Kind::answered;
  Duration latency = std::chrono::milliseconds(20);
  NetworkError error = NetworkError::connectionLost;
};

/// A network in virtual time. `fate` decides when an exchange starts what the wire does to it (unset: all answered
/// after 20 ms); `server` acts half of the latency later (unset: nothing listens, `cannotConnect`); the outcome comes
/// after the other half. Both run on a queue of the network's own. Transfers send their body evenly over the first
/// half, the bodies of sessions go out at once: from there on no byte moves until the outcome, and the limits of time
/// count.
///
/// An exchange that is cancelled, destroyed or overtaken by the death of its process never reaches the server unless it
/// has already; what the server did stays done, and a transfer that begins again may reach it twice. One thread.
class SimNetwork final : public Network {
 public:
  using Server = std::function<HttpResponse(const SimExchange&)>;

  SimNetwork(SimDispatch& dispatch, Files& files);
  ~SimNetwork() override;

  std::unique_ptr<HttpSession> makeSession(HttpSessionOptions options) override;
  std::unique_ptr<BackgroundTransferSession> makeBackgroundSession(BackgroundTransferOptions options,
                                                                   BackgroundTransferDelegate& delegate) override;

  // The test's side.

  Server server;
  std::function<SimFate(const SimExchange&)> fate;
  /// Without a route session exchanges fail with `cannotConnect` (those under way with `connectionLost`); transfers
  /// wait, the running ones again, and none completes.
  void setRoute(bool hasRoute);
  /// The machine slept: session exchanges under way fail with `connectionLost`, running transfers begin again.
  void suspend();
  /// A task of a former process completes in the background sessions of this one; they never listed it.
  void completeUnknownTask(HttpResponse response);
  int runningTransfers() const;

  // For the sessions.

  DispatchQueue& wire() { return *wire_; }
  Duration time() const { return dispatch_.hostTime().toNanoseconds(); }
  Files& files() { return files_; }
  bool hasRoute() const { return hasRoute_; }
  /// What happens to an exchange that starts now: `fate`'s word, if it can start at all.
  SimFate fateOf(const SimExchange& exchange) const;

 private:
  SimDispatch& dispatch_;
  Files& files_;
  bool hasRoute_ = true;
  std::vector<SimHttpSession*> sessions_;  // in the order of their making, as chance must not lie in addresses
  std::vector<SimBackgroundSession*> backgroundSessions_;
  std::unique_ptr<DispatchQueue> wire_;
};

}  // namespace quillbeam
