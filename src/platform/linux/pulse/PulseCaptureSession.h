#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/capture/CaptureDevices.h"
#include "platform/linux/capture/SoundSource.h"

namespace quillbeam {

/// A microphone that is being recorded.
class PulseCaptureInput : public CaptureDeviceInput {
 public:
  explicit PulseCaptureInput(std::unique_ptr<SoundSource> source) : source_(std::move(source)) {}
  SoundSource& source() { return *source_; }

 private:
  std::unique_ptr<SoundSource> source_;
};

/// Pulls a sound source on a thread of its own, a sixth of a second behind the host clock, and hands the blocks to the
/// output's queue. Runs once: after a stop it does not start again. Main queue.
class PulseCaptureSession : public CaptureSession {
 public:
  ~PulseCaptureSession() override { stopRunning(); }

  bool addInput(std::unique_ptr<CaptureDeviceInput> input) override;
  bool addAudioDataOutput(Callback callback, DispatchQueue& queue) override;
  /// Nothing without an input and an output.
  void startRunning() override;
  /// Waits for a callback that is running, unless it is called by one. What was captured in the last sixth of a second
  /// is not delivered any more.
  void stopRunning() override;

 private:
  /// What closures on the output's queue share with the session; it may be gone when they run.
  struct Output {
    Callback callback;
    std::atomic<bool> open = true;
  };

  void pull();
  bool pauseUntilStopped();

  std::unique_ptr<PulseCaptureInput> input_;
  std::shared_ptr<Output> output_;
  DispatchQueue* queue_ = nullptr;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable stopRequested_;
  bool stopping_ = false;  ///< under the mutex
};

}  // namespace quillbeam
