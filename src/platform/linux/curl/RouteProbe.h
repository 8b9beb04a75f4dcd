#pragma once

#include <string>

namespace quillbeam {

/// Tells a machine without a network from a server that does not answer.
class RouteProbe {
 public:
  virtual ~RouteProbe() = default;
  /// Whether there is any way at all to a host, given as URLs have it: a name, an address, a bracketed IPv6 address.
  /// Quick, on the network's thread.
  virtual bool hasRoute(const std::string& host) = 0;
};

/// Asks the kernel's routing tables; no packet is sent. Addresses are asked for themselves. Names are not resolved: for
/// them it takes a route into the world, in either family, so that a name inside a network without one counts as
/// unreachable.
class KernelRouteProbe final : public RouteProbe {
 public:
  bool hasRoute(const std::string& host) override;
};

}  // namespace quillbeam
