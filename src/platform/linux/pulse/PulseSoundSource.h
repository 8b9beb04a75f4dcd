#pragma once

#include <optional>

#include "platform/linux/capture/SoundSource.h"
#include "platform/linux/pulse/CaptureRing.h"
#include "platform/linux/pulse/HostClockTrack.h"
#include "platform/linux/pulse/PulseRecorder.h"

namespace quillbeam {

/// The system's sound or the microphone, recorded from its construction on and put on the host clock's timeline where
/// it is read. Used by one thread.
class PulseSoundSource : public SoundSource {
 public:
  PulseSoundSource(PulseContext& context, SoundRole role) : recorder_(context, role, ring_) {}

  /// Never fails: without a device there is silence.
  Result<void> start(MediaTime from) override;
  std::vector<SampleBuffer> readUntil(MediaTime hostTime) override;
  bool isDelivering() const override;
  /// Pieces of sound lost because nobody read for seconds.
  std::int64_t overruns() const { return ring_.overruns(); }

 private:
  CaptureRing ring_;
  PulseRecorder recorder_;
  std::optional<HostClockTrack> track_;
};

}  // namespace quillbeam
