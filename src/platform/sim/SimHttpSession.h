#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/sim/SimNetwork.h"

namespace quillbeam {

/// A session whose exchanges are `SimTransmission`s. Once it is destroyed its exchanges answer no more.
class SimHttpSession final : public HttpSession {
 public:
  using Gone = std::function<void(SimHttpSession*)>;

  SimHttpSession(SimNetwork& network, HttpSessionOptions options, Gone gone);
  ~SimHttpSession() override;

  Task<HttpResponse> send(HttpRequest request) override;
  /// What is under way fails with `connectionLost`.
  void loseConnections();

 private:
  struct Exchange;

  void begin(const std::shared_ptr<Exchange>& exchange, HttpRequest request);
  std::vector<std::shared_ptr<Exchange>> underWay() const;

  SimNetwork& network_;
  HttpSessionOptions options_;
  Gone gone_;
  std::vector<std::weak_ptr<Exchange>> exchanges_;  // each belongs to the task that waits for it
};

}  // namespace quillbeam
