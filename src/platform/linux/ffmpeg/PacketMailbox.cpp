#include "platform/linux/ffmpeg/PacketMailbox.h"

#include <utility>

namespace quillbeam {

void PacketMailbox::push(EncodedPacket packet) {
  {
    MutexLock lock(mutex_);
    packets_.push_back(std::move(packet));
  }
  consumer_.raise();
}

void PacketMailbox::close(Ending ending) {
  {
    MutexLock lock(mutex_);
    ending_ = std::move(ending);
  }
  consumer_.raise();
}

bool PacketMailbox::isFull() const {
  MutexLock lock(mutex_);
  return packets_.size() >= capacity_;
}

void PacketMailbox::requestStart() {
  {
    MutexLock lock(mutex_);
    startRequested_ = true;
  }
  producer_.raise();
}

bool PacketMailbox::takeStartRequest() {
  MutexLock lock(mutex_);
  return std::exchange(startRequested_, false);
}

std::optional<EncodedPacket> PacketMailbox::pop() {
  std::optional<EncodedPacket> packet;
  {
    MutexLock lock(mutex_);
    if (packets_.empty()) return packet;
    packet = std::move(packets_.front());
    packets_.pop_front();
  }
  producer_.raise();
  return packet;
}

std::optional<PacketMailbox::Ending> PacketMailbox::ending() const {
  MutexLock lock(mutex_);
  return packets_.empty() ? ending_ : std::nullopt;
}

}  // namespace quillbeam
