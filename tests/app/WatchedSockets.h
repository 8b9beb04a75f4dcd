#pragma once

#include "platform/sim/SimSockets.h"

namespace quillbeam::test {

/// Simulated sockets that remember the connecting end made last, so that a test can make trouble for it.
class WatchedSockets final : public LocalSockets {
 public:
  Result<std::unique_ptr<LocalListener>> listen(const Path& path, DispatchQueue& queue, Accepted accepted) override {
    return sim.listen(path, queue, std::move(accepted));
  }
  Result<std::unique_ptr<LocalConnection>> connect(const Path& path, DispatchQueue& queue) override {
    auto connection = sim.connect(path, queue);
    if (connection) last = connection->get();
    return connection;
  }

  SimSockets sim;
  LocalConnection* last = nullptr;
};

}  // namespace quillbeam::test
