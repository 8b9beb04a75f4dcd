#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/curl/CurlNetwork.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/sim/SimFiles.h"
#include "platform/sim/SimNetwork.h"
#include "support/LoopbackServer.h"
#include "support/Worlds.h"

namespace quillbeam {

class FakeRouteProbe final : public RouteProbe {
 public:
  explicit FakeRouteProbe(std::shared_ptr<std::atomic<bool>> answer) : answer_(std::move(answer)) {}
  bool hasRoute(const std::string&) override { return *answer_; }

 private:
  std::shared_ptr<std::atomic<bool>> answer_;
};

class FakeSuspendClock final : public SuspendClock {
 public:
  explicit FakeSuspendClock(std::shared_ptr<std::atomic<Duration>> time) : time_(std::move(time)) {}
  Duration timeSuspended() override { return *time_; }

 private:
  std::shared_ptr<std::atomic<Duration>> time_;
};

/// What the far side does with the requests to one path.
struct ServerScript {
  enum class Fate { answers, closesWithoutAWord, closesInTheMiddle, stalls };
  Fate fate = Fate::answers;
  HttpResponse response{.status = 200};
  Duration delay{};
};

struct SeenRequest {
  std::string method;
  std::string target;
  std::vector<HttpHeader> headers;
  std::string body;
};

/// A network with a scripted server behind it, in either world.
class NetworkRig {
 public:
  virtual ~NetworkRig() = default;
  virtual Network& network() = 0;
  virtual Files& files() = 0;
  virtual std::string url(const std::string& target) const = 0;
  virtual void stopListening() = 0;
  virtual void setRoute(bool hasRoute) = 0;
  virtual void suspend() = 0;

  void script(const std::string& path, ServerScript script) {
    const std::lock_guard lock(mutex_);
    scripts_[path] = std::move(script);
  }
  std::vector<SeenRequest> seen() const {
    const std::lock_guard lock(mutex_);
    return seen_;
  }

 protected:
  ServerScript scriptOf(const std::string& target) const {
    const std::lock_guard lock(mutex_);
    const auto found = scripts_.find(target.substr(0, target.find('?')));
    return found == scripts_.end() ? ServerScript() : found->second;
  }
  void note(SeenRequest request) {
    const std::lock_guard lock(mutex_);
    seen_.push_back(std::move(request));
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, ServerScript> scripts_;
  std::vector<SeenRequest> seen_;
};

class LinuxNetworkRig final : public NetworkRig {
 public:
  explicit LinuxNetworkRig(Dispatch& dispatch)
      : network_(dispatch, {.routeProbe = std::make_unique<FakeRouteProbe>(hasRoute_),
                            .suspendClock = std::make_unique<FakeSuspendClock>(timeSuspended_),
                            .routeRetryInterval = std::chrono::milliseconds(50)}) {}

  Network& network() override { return network_; }
  Files& files() override { return files_; }
  std::string url(const std::string& target) const override { return server_.url(target); }
  void stopListening() override { server_.stop(); }
  void setRoute(bool hasRoute) override { *hasRoute_ = hasRoute; }
  void suspend() override { *timeSuspended_ = timeSuspended_->load() + std::chrono::minutes(5); }

 private:
  LoopbackServer::Then serve(LoopbackExchange& exchange) {
    using enum ServerScript::Fate;
    const ServerScript script = scriptOf(exchange.target);
    if (script.fate == stalls) {
      exchange.waitForTheEnd();
      return LoopbackServer::Then::close;
    }
    std::string body = exchange.readBody();
    note({exchange.method, exchange.target, exchange.headers, std::move(body)});
    exchange.pause(script.delay);
    if (script.fate == closesWithoutAWord) return LoopbackServer::Then::close;
    std::string text = LoopbackExchange::textOf(script.response);
    if (script.fate == closesInTheMiddle) text.resize(text.size() / 2);
    exchange.send(text);
    return script.fate == answers ? LoopbackServer::Then::keepOpen : LoopbackServer::Then::close;
  }

  std::shared_ptr<std::atomic<bool>> hasRoute_ = std::make_shared<std::atomic<bool>>(true);
  std::shared_ptr<std::atomic<Duration>> timeSuspended_ = std::make_shared<std::atomic<Duration>>(Duration::zero());
  PosixFiles files_;
  LoopbackServer server_{[this](LoopbackExchange& exchange) { return serve(exchange); }};
  CurlNetwork network_;
};

class SimNetworkRig final : public NetworkRig {
 public:
  explicit SimNetworkRig(SimDispatch& dispatch) : files_(dispatch), network_(dispatch, files_) {
    network_.server = [this](const SimExchange& exchange) {
      note({exchange.request.method, targetOf(exchange), exchange.request.headers,
            std::string(exchange.body.begin(), exchange.body.end())});
      return scriptOf(targetOf(exchange)).response;
    };
    network_.fate = [this](const SimExchange& exchange) { return fateOf(scriptOf(targetOf(exchange))); };
  }

  Network& network() override { return network_; }
  Files& files() override { return files_; }
  std::string url(const std::string& target) const override { return host + target; }
  void stopListening() override { network_.server = nullptr; }
  void setRoute(bool hasRoute) override { network_.setRoute(hasRoute); }
  void suspend() override { network_.suspend(); }

 private:
  static constexpr const char* host = "http://service.test";
  static std::string targetOf(const SimExchange& exchange) {
    return exchange.request.url.substr(std::string_view(host).size());
  }
  static SimFate fateOf(const ServerScript& script) {
    using enum ServerScript::Fate;
    SimFate fate;
    fate.latency += script.delay;
    if (script.fate == stalls) fate.kind = SimFate::Kind::stalled;
    if (script.fate == closesWithoutAWord) fate.kind = SimFate::Kind::noAnswer;
    if (script.fate == closesInTheMiddle) fate.kind = SimFate::Kind::answerLost;
    return fate;
  }

  SimFiles files_;
  SimNetwork network_;
};

}  // namespace quillbeam
