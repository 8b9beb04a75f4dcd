#include "platform/linux/curl/RouteProbe.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace quillbeam {

namespace {

using Addresses = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

/// Nobody's addresses (reserved for documentation), so that only a route into the world leads there.
constexpr const char* somewhereInIpv4 = "198.51.100.1";
constexpr const char* somewhereInIpv6 = "2001:db8::1";

/// nullptr when the text is no address.
Addresses parsed(const char* address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(address, "443", &hints, &found) != 0) found = nullptr;
  return {found, &::freeaddrinfo};
}

bool leadsTo(const addrinfo& address) {
  const int socket = ::socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  // Out of descriptors is not out of routes; a family that the kernel does not have is.
  if (socket < 0) return errno != EAFNOSUPPORT;
  const bool connected = ::connect(socket, address.ai_addr, address.ai_addrlen) == 0;
  ::close(socket);
  return connected;
}

bool leadsTo(const char* address) {
  const Addresses target = parsed(address);
  return target && leadsTo(*target);
}

bool isThisMachine(std::string_view name) { return name == "localhost" || name.ends_with(".localhost"); }

}  // namespace

bool KernelRouteProbe::hasRoute(const std::string& host) {
  const bool isBracketed = host.starts_with('[') && host.ends_with(']');
  const std::string bare = isBracketed ? host.substr(1, host.size() - 2) : host;
  if (const Addresses address = parsed(bare.c_str())) return leadsTo(*address);
  if (isThisMachine(bare)) return leadsTo("127.0.0.1") || leadsTo("::1");
  return leadsTo(somewhereInIpv4) || leadsTo(somewhereInIpv6);
}

}  // namespace quillbeam
