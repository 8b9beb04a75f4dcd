#include "channels/InProcessMessenger.h"

#include <utility>

namespace quillbeam {

class InProcessMessenger::Client final : public FrameMessenger {
 public:
  Client(Executor& queue, InProcessMessenger& native, PeerId self)
      : FrameMessenger(queue), native_(&native), self_(self) {
    addPeer(PeerId::native(), [this](Frame frame) { sendToNative(std::move(frame)); });
  }

  ~Client() override {
    if (native_ == nullptr) return;
    native_->clients_.erase(self_);
    queue().async(weakly(native_, [self = self_](InProcessMessenger& native) { native.removePeer(self); }));
  }

  void receiveLater(Frame frame) {
    queue().async(weakly(
        this, [frame = std::move(frame)](Client& self) mutable { self.receive(PeerId::native(), std::move(frame)); }));
  }

  void nativeGone() {
    native_ = nullptr;
    queue().async(weakly(this, [](Client& self) { self.removePeer(PeerId::native()); }));
  }

 private:
  void sendToNative(Frame frame) {
    if (native_ == nullptr) return;
    queue().async(weakly(native_, [self = self_, frame = std::move(frame)](InProcessMessenger& native) mutable {
      native.receive(self, std::move(frame));
    }));
  }

  InProcessMessenger* native_;  ///< nullptr once it is gone
  PeerId self_;
};

InProcessMessenger::~InProcessMessenger() {
  for (const auto& [peer, client] : clients_) client->nativeGone();
}

std::unique_ptr<BinaryMessenger> InProcessMessenger::connectClient() {
  const PeerId peer(++lastClient_);
  auto client = std::make_unique<Client>(queue(), *this, peer);
  clients_.emplace(peer, client.get());
  addPeer(peer, [this, peer](Frame frame) {
    // A client that has just gone is a peer until the queue gets to its farewell.
    if (const auto found = clients_.find(peer); found != clients_.end()) found->second->receiveLater(std::move(frame));
  });
  return client;
}

}  // namespace quillbeam
