#pragma once

#include <set>

#include "base/Completion.h"
#include "platform/linux/curl/CurlWorker.h"
#include "platform/network/HttpSession.h"

namespace quillbeam {

/// Exchanges that hold everything in memory. What is under way when the session goes is given up; its tasks never
/// resume.
class CurlHttpSession final : public HttpSession {
 public:
  CurlHttpSession(CurlWorker& worker, HttpSessionOptions options) : worker_(worker), options_(options) {}
  ~CurlHttpSession() override;

  Task<HttpResponse> send(HttpRequest request) override;

 private:
  /// nullopt: the connection was closed in order, without an answer.
  using Done = Completion<std::optional<HttpResponse>>;
  void start(HttpRequest request, const Done& done) RUNS_ON(worker_);

  CurlWorker& worker_;
  const HttpSessionOptions options_;
  std::set<CurlExchange*> underWay_ CONFINED_TO(worker_);
};

}  // namespace quillbeam
