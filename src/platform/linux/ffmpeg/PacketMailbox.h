#pragma once

#include <deque>
#include <optional>

#include "base/MediaTime.h"
#include "base/Mutex.h"
#include "base/Result.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"
#include "platform/linux/ffmpeg/WorkSignal.h"

namespace quillbeam {

/// Coded pictures between the thread that encodes and the thread that writes. The encoder looks whether it is full
/// before it takes its next picture, so that a disk that stalls is felt in front of the encoder and no coded picture is
/// dropped. Any thread.
class PacketMailbox {
 public:
  /// How it ended: where the track ends on the timeline, or why there is no more.
  using Ending = Result<std::optional<MediaTime>>;

  PacketMailbox(std::size_t capacity, WorkSignal& producer, WorkSignal& consumer)
      : capacity_(capacity), producer_(producer), consumer_(consumer) {}

  void push(EncodedPacket packet);
  void close(Ending ending);
  bool isFull() const;

  /// Asks the encoder for first packets although there may be no picture yet.
  void requestStart();
  /// Whether that was asked since the last look.
  bool takeStartRequest();

  std::optional<EncodedPacket> pop();
  /// Set once it is closed and empty.
  std::optional<Ending> ending() const;

 private:
  const std::size_t capacity_;
  WorkSignal& producer_;
  WorkSignal& consumer_;
  mutable Mutex mutex_;
  std::deque<EncodedPacket> packets_ GUARDED_BY(mutex_);
  std::optional<Ending> ending_ GUARDED_BY(mutex_);
  bool startRequested_ GUARDED_BY(mutex_) = false;
};

}  // namespace quillbeam
