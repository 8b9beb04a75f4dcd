#pragma once

#include <cstdint>
#include <memory>

#include "channels/FrameMessenger.h"

namespace quillbeam {

/// The native side of a UI that lives in this process. Each client has its own messenger; everything between them is
/// delivered asynchronously on the one queue, in order.
class InProcessMessenger final : public FrameMessenger {
 public:
  explicit InProcessMessenger(Executor& queue) : FrameMessenger(queue) {}
  ~InProcessMessenger() override;

  /// A new client. Destroying it disconnects it; when the native side goes first, its calls fail from then on.
  std::unique_ptr<BinaryMessenger> connectClient();

 private:
  class Client;
  std::uint64_t lastClient_ = 0;
  std::map<PeerId, Client*> clients_;
};

}  // namespace quillbeam
