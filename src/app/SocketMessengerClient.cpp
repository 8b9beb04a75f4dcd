#include "app/SocketMessengerClient.h"

#include <utility>

namespace quillbeam {

Result<std::unique_ptr<SocketMessengerClient>> SocketMessengerClient::connect(LocalSockets& sockets, const Path& path,
                                                                              DispatchQueue& queue) {
  TRY(auto connection, sockets.connect(path, queue));
  return std::unique_ptr<SocketMessengerClient>(new SocketMessengerClient(queue, std::move(connection)));
}

SocketMessengerClient::SocketMessengerClient(DispatchQueue& queue, std::unique_ptr<LocalConnection> connection)
    : FrameMessenger(queue), connection_(std::make_unique<FrameConnection>(queue, std::move(connection))) {
  addPeer(PeerId::native(), [this](Frame frame) { connection_->send(std::move(frame)); });
  connection_->start([this](Frame frame) { receive(PeerId::native(), std::move(frame)); },
                     [this] {
                       connection_.reset();
                       removePeer(PeerId::native());
                     });
}

SocketMessengerClient::~SocketMessengerClient() = default;

}  // namespace quillbeam
