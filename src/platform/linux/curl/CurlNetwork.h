#pragma once

#include <chrono>
#include <memory>

#include "platform/linux/curl/RouteProbe.h"
#include "platform/linux/curl/SuspendClock.h"
#include "platform/network/Network.h"

namespace quillbeam {

class CurlWorker;

/// What the network asks the kernel, for tests to replace.
struct CurlNetworkParts {
  std::unique_ptr<RouteProbe> routeProbe = std::make_unique<KernelRouteProbe>();
  std::unique_ptr<SuspendClock> suspendClock = std::make_unique<KernelSuspendClock>();
  Duration routeRetryInterval = std::chrono::seconds(2);
};

/// The real network: HTTP/1.1 with and without TLS, on one thread of its own. Proxies are taken from the environment,
/// as everywhere on the system. Gone before the dispatch is.
class CurlNetwork final : public Network {
 public:
  explicit CurlNetwork(Dispatch& dispatch, CurlNetworkParts parts = {});
  ~CurlNetwork() override;

  std::unique_ptr<HttpSession> makeSession(HttpSessionOptions options) override;
  std::unique_ptr<BackgroundTransferSession> makeBackgroundSession(BackgroundTransferOptions options,
                                                                   BackgroundTransferDelegate& delegate) override;

 private:
  Dispatch& dispatch_;
  CurlNetworkParts parts_;
  std::unique_ptr<CurlWorker> worker_;
};

}  // namespace quillbeam
