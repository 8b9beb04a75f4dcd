#include "platform/linux/pulse/PulseSoundSource.h"

#include "platform/linux/pulse/HostClock.h"

namespace quillbeam {

namespace {

constexpr std::int64_t deliveryPause = 500'000'000;  ///< nanoseconds; longer means that a source does not deliver

}  // namespace

Result<void> PulseSoundSource::start(MediaTime from) {
  track_.emplace(from);
  return success;
}

std::vector<SampleBuffer> PulseSoundSource::readUntil(MediaTime hostTime) {
  QB_CHECK(track_);
  ring_.drain([this](const CapturedSound& sound) { track_->write(sound); });
  return track_->readUntil(hostTime);
}

bool PulseSoundSource::isDelivering() const {
  const std::int64_t last = recorder_.lastDelivery();
  return last != 0 && hostClockNow() - last < deliveryPause;
}

}  // namespace quillbeam
