#include "platform/linux/pulse/PulseCaptureSession.h"

#include <chrono>
#include <utility>

#include "platform/linux/pulse/HostClock.h"

namespace quillbeam {

namespace {

constexpr std::chrono::milliseconds pace{10};
constexpr std::int64_t readingDelay = 160'000'000;  ///< nanoseconds in which a source may deliver late

}  // namespace

bool PulseCaptureSession::addInput(std::unique_ptr<CaptureDeviceInput> input) {
  auto* ours = dynamic_cast<PulseCaptureInput*>(input.get());
  if (input_ || !ours) return false;
  (void)input.release();
  input_.reset(ours);
  return true;
}

bool PulseCaptureSession::addAudioDataOutput(Callback callback, DispatchQueue& queue) {
  if (output_) return false;
  output_ = std::make_shared<Output>(std::move(callback));
  queue_ = &queue;
  return true;
}

void PulseCaptureSession::startRunning() {
  if (!input_ || !output_ || thread_.joinable() || stopping_) return;
  if (!input_->source().start(MediaTime::nanoseconds(hostClockNow()))) return;
  thread_ = std::thread([this] { pull(); });
}

void PulseCaptureSession::stopRunning() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopRequested_.notify_all();
  if (!thread_.joinable()) return;
  thread_.join();
  output_->open = false;
  if (!queue_->isCurrent()) queue_->sync([] {});
}

void PulseCaptureSession::pull() {
  while (!pauseUntilStopped()) {
    for (SampleBuffer& sample : input_->source().readUntil(MediaTime::nanoseconds(hostClockNow() - readingDelay))) {
      queue_->async([output = output_, sample = std::move(sample)] {
        if (output->open) output->callback(sample);
      });
    }
  }
}

bool PulseCaptureSession::pauseUntilStopped() {
  std::unique_lock lock(mutex_);
  return stopRequested_.wait_for(lock, pace, [this] { return stopping_; });
}

}  // namespace quillbeam
