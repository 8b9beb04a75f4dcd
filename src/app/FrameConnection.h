#pragma once

#include <functional>
#include <memory>

#include "base/Weakly.h"
#include "channels/FrameCodec.h"
#include "platform/LocalSocket.h"

namespace quillbeam {

/// A local socket that carries frames. It gives up on a peer that sends garbage, and on one that reads so slowly that
/// more than `largestBacklog` waits for it when the next frame is due. Lives on `queue`; destroyed there, from inside
/// `closed` at the earliest.
class FrameConnection final : public WeaklyHeld {
 public:
  static constexpr std::size_t largestBacklog = std::size_t{16} << 20;

  FrameConnection(DispatchQueue& queue, std::unique_ptr<LocalConnection> connection);

  /// `closed` is called once, never inside another call of this class, when the peer is gone or was given up; nothing
  /// is received after it.
  void start(std::function<void(Frame)> received, std::function<void()> closed);
  /// Never blocks; does nothing once the peer is gone.
  void send(Frame frame);
  /// Closes when what was sent has gone out, or after `deadline`.
  void closeAfterSending(Duration deadline) { connection_->closeAfterSending(deadline); }

 private:
  void read(ByteSpan bytes);
  void giveUp();

  enum class State { open, givenUp };

  DispatchQueue& queue_;
  std::unique_ptr<LocalConnection> connection_;
  FrameReader reader_;
  State state_ = State::open;
  std::function<void(Frame)> received_;
  std::function<void()> closed_;
};

}  // namespace quillbeam
