#include "platform/linux/curl/CurlHttpSession.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

CurlHttpSession::~CurlHttpSession() {
  worker_.sync([this] {
    worker_.assertCurrent();
    for (CurlExchange* exchange : underWay_) worker_.forget(*exchange);
  });
}

Task<HttpResponse> CurlHttpSession::send(HttpRequest request) {
  CO_TRY(auto answer, co_await completed<std::optional<HttpResponse>>([&](Done done) {
           worker_.async([this, request = std::move(request), done = std::move(done)]() mutable {
             worker_.assertCurrent();
             start(std::move(request), done);
           });
         }));
  if (!answer) co_return NetworkError::connectionLost;
  co_return *std::move(answer);
}

void CurlHttpSession::start(HttpRequest request, const Done& done) {
  const ExchangeLimits limits{std::min(request.timeout, options_.requestTimeout), options_.resourceTimeout};
  // Known only once it has started; its end comes later.
  const auto self = std::make_shared<CurlExchange*>(nullptr);
  auto exchange =
      CurlExchange::create(std::move(request), nullptr, limits, [this, self, done](CurlExchange::Outcome outcome) {
        worker_.assertCurrent();
        underWay_.erase(*self);
        done(std::move(outcome));
      });
  if (!exchange) return done(std::move(exchange).error());
  *self = &worker_.start(*std::move(exchange));
  underWay_.insert(*self);
}

}  // namespace quillbeam
