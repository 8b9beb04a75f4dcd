#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "app/FrameConnection.h"
#include "base/Completion.h"
#include "base/Task.h"
#include "channels/FrameMessenger.h"
#include "platform/LocalSocket.h"

namespace quillbeam {

/// The native side of UI processes and tools: every connection to the local socket is a client. A client that sends
/// garbage or does not read what it is sent is disconnected, alone. Lives on `queue`.
class SocketMessenger final : public FrameMessenger {
 public:
  /// `LocalSocketError`s. Nobody is heard before this has returned to the queue, so handlers may be set right after.
  static Result<std::unique_ptr<SocketMessenger>> listen(LocalSockets& sockets, const Path& path, DispatchQueue& queue);
  ~SocketMessenger() override;

  /// `changed` is called after every change of `clientCount`.
  void onClientsChanged(std::function<void()> changed) { clientsChanged_ = std::move(changed); }
  std::size_t clientCount() const { return clients_.size(); }
  /// Accepts nobody any more, lets what was sent go out, and ends when every client is disconnected; `deadline` bounds
  /// it. Before the end of the process, so that the last replies arrive. Called once.
  Task<void> shutDown(Duration deadline);

 private:
  explicit SocketMessenger(DispatchQueue& queue) : FrameMessenger(queue), queue_(queue) {}

  void accept(std::unique_ptr<LocalConnection> connection);
  void remove(PeerId peer);

  DispatchQueue& queue_;
  std::unique_ptr<LocalListener> listener_;
  std::uint64_t lastClient_ = 0;
  std::map<PeerId, std::unique_ptr<FrameConnection>> clients_;
  std::function<void()> clientsChanged_;
  std::optional<Completion<void>> allGone_;
};

}  // namespace quillbeam
