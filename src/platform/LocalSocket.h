#pragma once

#include <functional>
#include <memory>

#include "base/ByteChain.h"
#include "platform/Dispatch.h"
#include "platform/Files.h"

namespace quillbeam {

/// One end of a byte stream between processes of the same user on this machine (a Unix stream socket). All callbacks
/// arrive on the queue given at creation; none after the connection was destroyed on that queue.
class LocalConnection {
 public:
  virtual ~LocalConnection() = default;

  /// `received` gets bytes as they come, in any cutting; `closed` is called once when the peer went away or broke
  /// (nothing follows). Call once, before anything is expected to arrive.
  virtual void start(std::function<void(ByteSpan)> received, std::function<void()> closed) = 0;
  /// Queues the bytes and returns at once. Nothing is written after the connection was closed.
  virtual void send(ByteChain bytes) = 0;
  /// Bytes queued and not yet taken by the system: what a slow reader costs us.
  virtual std::size_t unsentBytes() const = 0;
  /// Closes once what was queued has gone out, or when `deadline` has passed; then `closed` is called.
  virtual void closeAfterSending(Duration deadline) = 0;
};

class LocalListener {
 public:
  virtual ~LocalListener() = default;  ///< stops listening and removes the socket file
};

enum class LocalSocketError {
  inUse,         ///< a live process answers at the path
  notListening,  ///< nothing answers at the path
  foreignPeer,   ///< the process at the other end belongs to another user
  pathTooLong,   ///< the system allows 107 bytes
};
std::string describe(LocalSocketError error);
constexpr std::string_view errorDomain(LocalSocketError) { return "LocalSocketError"; }

class LocalSockets {
 public:
  virtual ~LocalSockets() = default;

  using Accepted = std::function<void(std::unique_ptr<LocalConnection>)>;
  /// Listens at `path`: mode 0600 from its first moment, a stale file of a dead process is replaced, peers of other
  /// users are turned away before `accepted` hears of them. `accepted` runs on `queue`.
  virtual Result<std::unique_ptr<LocalListener>> listen(const Path& path, DispatchQueue& queue, Accepted accepted) = 0;
  /// Connects at once or fails. Peers of other users give `foreignPeer`.
  virtual Result<std::unique_ptr<LocalConnection>> connect(const Path& path, DispatchQueue& queue) = 0;
};

}  // namespace quillbeam
