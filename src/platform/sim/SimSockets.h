#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "platform/LocalSocket.h"

namespace quillbeam {

struct SimStreamRules;

/// Local sockets in memory: bytes arrive cut as the seed likes, in virtual time; the system takes as many as a real
/// socket's buffer holds and no more. The test usually is one end and makes trouble for the other.
class SimSockets final : public LocalSockets {
 public:
  explicit SimSockets(std::uint64_t seed = 1);
  ~SimSockets() override;

  Result<std::unique_ptr<LocalListener>> listen(const Path& path, DispatchQueue& queue, Accepted accepted) override;
  Result<std::unique_ptr<LocalConnection>> connect(const Path& path, DispatchQueue& queue) override;

  // The test's side.

  /// Every cut of bytes takes this long to arrive.
  void setLatency(Duration latency);
  /// What the system takes from a sender before the reader has read (at most 208 KiB unless set).
  void setCapacity(std::size_t bytes);
  /// `end`, one of this object's connections, reads nothing until it is allowed to again.
  void stallReading(LocalConnection& end);
  void resumeReading(LocalConnection& end);
  /// The connection breaks: both ends are closed, what is on the way is lost.
  void disconnect(LocalConnection& end);
  /// From now on the processes that listen where we connect belong to another user.
  void makePeersForeign() { foreignPeers_ = true; }

 private:
  class Listener;

  std::shared_ptr<SimStreamRules> rules_;
  bool foreignPeers_ = false;
  std::map<Path, Listener*> listeners_;
};

}  // namespace quillbeam
