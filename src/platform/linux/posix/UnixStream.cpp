#include "platform/linux/posix/UnixStream.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <utility>

namespace quillbeam {

namespace {

constexpr std::size_t readSize = 64 * 1024;
constexpr std::size_t mostOnTheWay = 1024 * 1024;
/// Then the next connection gets its turn.
constexpr int readsPerTurn = 4;

}  // namespace

UnixStream::UnixStream(IoThread& io, FileDescriptor socket, DispatchQueue& queue)
    : io_(io), socket_(std::move(socket)), queue_(&queue) {}

std::shared_ptr<UnixReceiver> UnixStream::receiver() const {
  MutexLock lock(mutex_);
  return receiver_;
}

void UnixStream::perform(void (UnixStream::*action)()) {
  io_.perform([self = shared_from_this(), action] { (*self.*action)(); });
}

void UnixStream::startReading() { perform(&UnixStream::beginReading); }
void UnixStream::closeNow() { perform(&UnixStream::finish); }
void UnixStream::closeWhenSent() { perform(&UnixStream::finishWhenSent); }

void UnixStream::abandon() {
  std::shared_ptr<UnixReceiver> last;  // its callbacks are destroyed here, on their queue
  {
    MutexLock lock(mutex_);
    queue_ = nullptr;
    last = std::exchange(receiver_, nullptr);
  }
  perform(&UnixStream::finish);
}

void UnixStream::send(ByteChain bytes) {
  bool wasEmpty = false;
  {
    MutexLock lock(mutex_);
    if (!writable_ || bytes.empty()) return;
    wasEmpty = outgoing_.empty();
    outgoing_.append(bytes);
  }
  if (wasEmpty) perform(&UnixStream::flush);
}

std::size_t UnixStream::unsentBytes() const {
  MutexLock lock(mutex_);
  return outgoing_.size();
}

// ---- on the I/O thread

void UnixStream::ready(std::uint32_t events) {
  if ((events & EPOLLOUT) != 0) flush();
  if (socket_.isOpen() && reading_ && !paused_ && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) readSome();
}

void UnixStream::beginReading() {
  reading_ = true;
  updateInterest();
}

void UnixStream::updateInterest() {
  if (!socket_.isOpen()) return;
  MutexLock lock(mutex_);
  std::uint32_t events = 0;
  if (reading_ && !paused_) events |= EPOLLIN;
  if (writable_ && !outgoing_.empty()) events |= EPOLLOUT;
  io_.watch(socket_.get(), events, shared_from_this());
}

void UnixStream::flush() {
  while (socket_.isOpen() && writeOnce()) {
  }
  if (closing_ && unsentBytes() == 0) return finish();
  updateInterest();
}

/// Whether there may be more to write right now.
bool UnixStream::writeOnce() {
  std::array<iovec, 16> slices;
  std::size_t count = 0;
  {
    // The spans stay good after the lock: slices are immutable, and only this thread takes them off the chain.
    MutexLock lock(mutex_);
    outgoing_.forEach([&](ByteSpan span) {
      if (count == slices.size()) return;
      slices[count++] = {.iov_base = const_cast<std::uint8_t*>(span.data()), .iov_len = span.size()};
    });
  }
  if (count == 0) return false;
  msghdr message{};
  message.msg_iov = slices.data();
  message.msg_iovlen = count;
  const ssize_t written = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (written < 0 && errno == EINTR) return true;
  if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
  MutexLock lock(mutex_);
  if (written >= 0) {
    outgoing_.takeFront(static_cast<std::size_t>(written));
    return true;
  }
  // The peer is gone. What it sent before may still be unread; the end of that is what closes.
  writable_ = false;
  outgoing_.clear();
  return false;
}

void UnixStream::readSome() {
  for (int turn = 0; turn < readsPerTurn && !paused_; ++turn) {
    Bytes bytes(readSize);
    const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (count <= 0) return finish();
    bytes.resize(static_cast<std::size_t>(count));
    paused_ = !deliver(std::move(bytes));
  }
  if (paused_) updateInterest();
}

/// False when enough is on its way.
bool UnixStream::deliver(Bytes bytes) {
  MutexLock lock(mutex_);
  if (queue_ == nullptr) return true;
  onTheWay_ += bytes.size();
  queue_->async([self = shared_from_this(), receiver = receiver_, bytes = std::move(bytes)] {
    if (receiver->alive && receiver->received) receiver->received(bytes);
    self->consumed(bytes.size());
  });
  return onTheWay_ < mostOnTheWay;
}

void UnixStream::consumed(std::size_t count) {
  {
    MutexLock lock(mutex_);
    const bool wasFull = onTheWay_ >= mostOnTheWay;
    onTheWay_ -= count;
    if (!wasFull || onTheWay_ >= mostOnTheWay) return;
  }
  perform(&UnixStream::resumeReading);
}

void UnixStream::resumeReading() {
  paused_ = false;
  updateInterest();
}

void UnixStream::finishWhenSent() {
  closing_ = true;
  flush();
}

void UnixStream::finish() {
  if (!socket_.isOpen()) return;
  io_.watch(socket_.get(), 0, nullptr);
  socket_.close();
  MutexLock lock(mutex_);
  writable_ = false;
  outgoing_.clear();
  if (queue_ == nullptr) return;
  queue_->async([receiver = receiver_] {
    if (receiver->alive && receiver->closed) receiver->closed();
  });
}

}  // namespace quillbeam
