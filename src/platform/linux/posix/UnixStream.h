#pragma once

#include <functional>
#include <memory>

#include "base/Mutex.h"
#include "platform/LocalSocket.h"
#include "platform/linux/posix/FileDescriptor.h"
#include "platform/linux/posix/IoThread.h"

namespace quillbeam {

/// What the owner's queue knows of a connection. Touched on that queue only, so that "no callback after the connection
/// was destroyed there" needs no lock.
struct UnixReceiver {
  std::function<void(ByteSpan)> received;
  std::function<void()> closed;
  bool alive = true;
};

/// The I/O thread's half of a connection: a connected non-blocking socket and what waits to go out. Reading pauses
/// while more than 1 MiB is on its way to the queue.
class UnixStream final : public IoSource, public std::enable_shared_from_this<UnixStream> {
 public:
  UnixStream(IoThread& io, FileDescriptor socket, DispatchQueue& queue);

  // From the owner's queue.
  std::shared_ptr<UnixReceiver> receiver() const;
  void startReading();
  void closeWhenSent();
  void closeNow();
  /// The owner is going: closes, and touches neither queue nor receiver any more.
  void abandon();

  // Any thread.
  void send(ByteChain bytes);
  std::size_t unsentBytes() const;

  void ready(std::uint32_t events) override;

 private:
  void perform(void (UnixStream::*action)());
  void beginReading();
  void flush();
  void finishWhenSent();
  void finish();
  void readSome();
  bool deliver(Bytes bytes);
  void consumed(std::size_t count);
  void resumeReading();
  bool writeOnce();
  void updateInterest();

  IoThread& io_;
  // The I/O thread's own:
  FileDescriptor socket_;
  bool reading_ = false;
  bool paused_ = false;
  bool closing_ = false;

  mutable Mutex mutex_;
  DispatchQueue* queue_ GUARDED_BY(mutex_);  // nullptr once abandoned
  std::shared_ptr<UnixReceiver> receiver_ GUARDED_BY(mutex_) = std::make_shared<UnixReceiver>();
  ByteChain outgoing_ GUARDED_BY(mutex_);
  std::size_t onTheWay_ GUARDED_BY(mutex_) = 0;
  bool writable_ GUARDED_BY(mutex_) = true;  // until the peer is gone or we close
};

}  // namespace quillbeam
