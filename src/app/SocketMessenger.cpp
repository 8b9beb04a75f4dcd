#include "app/SocketMessenger.h"

#include <utility>

namespace quillbeam {

Result<std::unique_ptr<SocketMessenger>> SocketMessenger::listen(LocalSockets& sockets, const Path& path,
                                                                 DispatchQueue& queue) {
  std::unique_ptr<SocketMessenger> messenger(new SocketMessenger(queue));
  TRY(messenger->listener_,
      sockets.listen(path, queue,
                     weakly(messenger.get(), [](SocketMessenger& self, std::unique_ptr<LocalConnection> connection) {
                       self.accept(std::move(connection));
                     })));
  return messenger;
}

SocketMessenger::~SocketMessenger() = default;

void SocketMessenger::accept(std::unique_ptr<LocalConnection> connection) {
  if (!listener_) return;
  const PeerId peer(++lastClient_);
  auto& client =
      *clients_.emplace(peer, std::make_unique<FrameConnection>(queue_, std::move(connection))).first->second;
  addPeer(peer, [&client](Frame frame) { client.send(std::move(frame)); });
  client.start([this, peer](Frame frame) { receive(peer, std::move(frame)); }, [this, peer] { remove(peer); });
  if (clientsChanged_) clientsChanged_();
}

void SocketMessenger::remove(PeerId peer) {
  removePeer(peer);
  clients_.erase(peer);
  if (clientsChanged_) clientsChanged_();
  if (clients_.empty() && allGone_) (*allGone_)(success);
}

Task<void> SocketMessenger::shutDown(Duration deadline) {
  listener_.reset();
  if (clients_.empty()) co_return success;
  for (const auto& [peer, client] : clients_) client->closeAfterSending(deadline);
  co_return co_await completed<void>([&](Completion<void> done) { allGone_ = done; });
}

}  // namespace quillbeam
