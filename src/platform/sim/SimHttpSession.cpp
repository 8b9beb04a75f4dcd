#include "platform/sim/SimHttpSession.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "base/Completion.h"
#include "platform/sim/SimTransmission.h"

namespace quillbeam {

namespace {

Result<HttpResponse> asAnswer(SimTransmission::Outcome outcome) {
  TRY(auto response, std::move(outcome));
  if (!response) return NetworkError::connectionLost;
  if (response->body.size() > HttpSession::largestAnswer) return NetworkError::responseTooLarge;
  return *std::move(response);
}

}  // namespace

struct SimHttpSession::Exchange {
  std::optional<Completion<HttpResponse>> done;
  std::shared_ptr<SimTransmission> transmission;

  void complete(Result<HttpResponse> result) {
    transmission.reset();
    if (const auto tell = std::exchange(done, std::nullopt)) (*tell)(std::move(result));
  }
  void forget() {
    done.reset();
    transmission.reset();
  }
};

SimHttpSession::SimHttpSession(SimNetwork& network, HttpSessionOptions options, Gone gone)
    : network_(network), options_(options), gone_(std::move(gone)) {}

SimHttpSession::~SimHttpSession() {
  for (const auto& exchange : underWay()) exchange->forget();
  gone_(this);
}

Task<HttpResponse> SimHttpSession::send(HttpRequest request) {
  const auto exchange = std::make_shared<Exchange>();
  std::erase_if(exchanges_, [](const auto& earlier) { return earlier.expired(); });
  exchanges_.push_back(exchange);
  co_return co_await completed<HttpResponse>([&](Completion<HttpResponse> done) {
    exchange->done = std::move(done);
    begin(exchange, std::move(request));
  });
}

void SimHttpSession::begin(const std::shared_ptr<Exchange>& exchange, HttpRequest request) {
  const std::weak_ptr<Exchange> weak = exchange;
  const SimLimits limits{std::min(request.timeout, options_.requestTimeout), options_.resourceTimeout};
  auto ended = [weak](SimTransmission::Outcome outcome) {
    if (const auto waiting = weak.lock()) waiting->complete(asAnswer(std::move(outcome)));
  };
  exchange->transmission = std::make_shared<SimTransmission>(network_, std::move(request), limits, std::move(ended));
  network_.wire().async([starting = std::weak_ptr(exchange->transmission)] {
    if (const auto transmission = starting.lock()) transmission->start();
  });
}

std::vector<std::shared_ptr<SimHttpSession::Exchange>> SimHttpSession::underWay() const {
  std::vector<std::shared_ptr<Exchange>> exchanges;
  for (const auto& exchange : exchanges_) {
    if (auto waiting = exchange.lock()) exchanges.push_back(std::move(waiting));
  }
  return exchanges;
}

void SimHttpSession::loseConnections() {
  for (const auto& exchange : underWay()) exchange->complete(NetworkError::connectionLost);
}

}  // namespace quillbeam
