#include "platform/sim/SimNetwork.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>

#include "base/Check.h"
#include "platform/sim/SimBackgroundSession.h"
#include "platform/sim/SimHttpSession.h"

namespace quillbeam {

namespace {

bool hasSchemeAndHost(std::string_view url) {
  const auto end = url.find("://");
  if (end == std::string_view::npos || !isParsableUrl(url)) return false;
  std::string scheme(url.substr(0, end));
  std::ranges::transform(scheme, scheme.begin(), [](unsigned char letter) { return std::tolower(letter); });
  const auto rest = url.substr(end + 3);
  const auto authority = rest.substr(0, rest.find_first_of("/?#"));
  return (scheme == "http" || scheme == "https") && !authority.empty() && !authority.starts_with(':');
}

bool isToken(std::string_view text) {
  constexpr std::string_view punctuation = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::ranges::all_of(text, [&](char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || punctuation.contains(character);
  });
}

bool isSendable(const HttpHeader& header) {
  using namespace std::string_view_literals;
  return isToken(header.name) && header.value.find_first_of("\r\n\0"sv) == std::string::npos;
}

std::optional<NetworkError> faultOf(const HttpRequest& request) {
  if (!hasSchemeAndHost(request.url)) return NetworkError::unsupportedUrl;
  if (!isToken(request.method) || !std::ranges::all_of(request.headers, isSendable)) {
    return NetworkError::invalidRequest;
  }
  return std::nullopt;
}

}  // namespace

SimNetwork::SimNetwork(SimDispatch& dispatch, Files& files)
    : dispatch_(dispatch), files_(files), wire_(dispatch.makeSerialQueue("sim.network")) {}

SimNetwork::~SimNetwork() { QB_CHECK(sessions_.empty() && backgroundSessions_.empty()); }

std::unique_ptr<HttpSession> SimNetwork::makeSession(HttpSessionOptions options) {
  auto gone = [this](SimHttpSession* session) { std::erase(sessions_, session); };
  auto session = std::make_unique<SimHttpSession>(*this, options, std::move(gone));
  sessions_.push_back(session.get());
  return session;
}

std::unique_ptr<BackgroundTransferSession> SimNetwork::makeBackgroundSession(BackgroundTransferOptions options,
                                                                             BackgroundTransferDelegate& delegate) {
  auto gone = [this](SimBackgroundSession* session) { std::erase(backgroundSessions_, session); };
  auto queue = dispatch_.makeSerialQueue("sim.network." + options.identifier);
  auto session = std::make_unique<SimBackgroundSession>(*this, std::move(queue), options, delegate, std::move(gone));
  backgroundSessions_.push_back(session.get());
  return session;
}

SimFate SimNetwork::fateOf(const SimExchange& exchange) const {
  using enum SimFate::Kind;
  if (const auto fault = faultOf(exchange.request)) {
    return {.kind = requestLost, .latency = Duration::zero(), .error = *fault};
  }
  if (!hasRoute_ || !server) return {.kind = requestLost, .error = NetworkError::cannotConnect};
  return fate ? fate(exchange) : SimFate{};
}

void SimNetwork::setRoute(bool hasRoute) {
  hasRoute_ = hasRoute;
  if (!hasRoute) {
    suspend();
  } else {
    for (SimBackgroundSession* session : backgroundSessions_) session->startWaitingSoon();
  }
}

void SimNetwork::suspend() {
  for (SimHttpSession* session : sessions_) session->loseConnections();
  for (SimBackgroundSession* session : backgroundSessions_) session->beginAgain();
}

void SimNetwork::completeUnknownTask(HttpResponse response) {
  for (SimBackgroundSession* session : backgroundSessions_) session->completeUnknownTask(response);
}

int SimNetwork::runningTransfers() const {
  int running = 0;
  for (const SimBackgroundSession* session : backgroundSessions_) running += session->runningTransfers();
  return running;
}

}  // namespace quillbeam
