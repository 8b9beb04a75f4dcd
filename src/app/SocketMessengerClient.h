#pragma once

#include <memory>

#include "app/FrameConnection.h"
#include "channels/FrameMessenger.h"
#include "platform/LocalSocket.h"

namespace quillbeam {

/// A client process's messenger: its one peer is the native half behind the socket. When the connection is lost, calls
/// that wait and all later ones get `MessengerError::peerGone`. Lives on `queue`; not destroyed from inside one of its
/// handlers.
class SocketMessengerClient final : public FrameMessenger {
 public:
  /// `LocalSocketError`s.
  static Result<std::unique_ptr<SocketMessengerClient>> connect(LocalSockets& sockets, const Path& path,
                                                                DispatchQueue& queue);
  ~SocketMessengerClient() override;

  bool isConnected() const { return connection_ != nullptr; }

 private:
  SocketMessengerClient(DispatchQueue& queue, std::unique_ptr<LocalConnection> connection);

  std::unique_ptr<FrameConnection> connection_;  ///< nullptr once it is lost
};

}  // namespace quillbeam
