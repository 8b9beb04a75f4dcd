#pragma once

#include <pulse/stream.h>

#include <atomic>
#include <optional>

#include "platform/linux/pulse/CaptureRing.h"
#include "platform/linux/pulse/PulseContext.h"

namespace quillbeam {

enum class SoundRole { systemAudio, microphone };

/// Keeps a record stream open on the device that plays a role at the moment: follows changes of the defaults and comes
/// back after the server, the device or the stream was gone. What arrives goes into the ring with the time at which it
/// happened. Made and destroyed on any thread but the loop's; works on the loop's.
class PulseRecorder : private PulseObserver {
 public:
  /// The context and the ring outlive it.
  PulseRecorder(PulseContext& context, SoundRole role, CaptureRing& ring);
  ~PulseRecorder() override;

  /// Any thread: the host time (nanoseconds) of the last delivery; 0 before the first.
  std::int64_t lastDelivery() const { return lastDelivery_.load(std::memory_order_relaxed); }

 private:
  void serverDidChange() override;
  void follow() REQUIRES_LOCK(context_.loop());
  void open(pa_context* connection, const PulseDevice& device) REQUIRES_LOCK(context_.loop());
  void close() REQUIRES_LOCK(context_.loop());
  /// When the next frame to be taken happened: the server has just said how long ago that was.
  void takeStamp() REQUIRES_LOCK(context_.loop());
  void takeWhatArrived() REQUIRES_LOCK(context_.loop());
  static PulseRecorder& self(void* userdata) { return *static_cast<PulseRecorder*>(userdata); }

  PulseContext& context_;
  const SoundRole role_;
  CaptureRing& ring_;
  pa_stream* stream_ = nullptr;              ///< loop
  std::optional<PulseDevice> device_;        ///< loop: that the stream records
  Continuity next_ = Continuity::restarts;   ///< loop: of the next piece
  std::optional<std::int64_t> stampOfNext_;  ///< loop
  std::int64_t settledAt_ = 0;  ///< loop: from when on stamps can be relied on; 0 before the first delivery
  std::atomic<std::int64_t> lastDelivery_ = 0;
};

}  // namespace quillbeam
