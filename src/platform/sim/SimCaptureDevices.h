#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "base/Weakly.h"
#include "platform/Dispatch.h"
#include "platform/capture/CaptureDevices.h"
#include "platform/sim/SimCaptureStream.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {

class SimCaptureSession;

/// A scripted microphone. Sessions read the script when they are asked.
class SimCaptureDevices final : public CaptureDevices {
 public:
  enum class Session { accepts, refusesInput, refusesOutput };
  struct Script {
    std::optional<CaptureDevice> device = CaptureDevice{"sim-microphone", "Simulated Microphone"};
    std::optional<Error> inputError;
    Session session = Session::accepts;
    SimSamples samples = SimSamples::byItself;
    double tone = 880;  ///< Hz; 0 is silence
  };

  explicit SimCaptureDevices(Dispatch& dispatch) : dispatch_(dispatch) {}

  std::optional<CaptureDevice> defaultAudioDevice() override { return script.device; }
  Result<std::unique_ptr<CaptureDeviceInput>> makeInput(const CaptureDevice& device) override;
  std::unique_ptr<CaptureSession> makeSession() override;

  // The test's side.

  Script script;
  /// The session made last; null before the first and when it is gone.
  SimCaptureSession* session() const { return sessions_.empty() ? nullptr : sessions_.back(); }

 private:
  friend class SimCaptureSession;
  Dispatch& dispatch_;
  std::vector<SimCaptureSession*> sessions_;  // those that exist
};

/// While it runs, a tone in blocks of 10 ms, or what the test delivers. Main queue.
class SimCaptureSession final : public CaptureSession, public WeaklyHeld {
 public:
  explicit SimCaptureSession(SimCaptureDevices& devices) : devices_(devices) {}
  ~SimCaptureSession() override;

  bool addInput(std::unique_ptr<CaptureDeviceInput> input) override;
  bool addAudioDataOutput(Callback callback, DispatchQueue& queue) override;
  void startRunning() override;
  void stopRunning() override;

  // The test's side.

  bool isRunning() const { return running_ != nullptr; }
  /// Hands a sample to the output as it is; nothing happens while the session does not run.
  void deliver(SampleBuffer sample);

 private:
  void scheduleBlock();

  SimCaptureDevices& devices_;
  std::unique_ptr<CaptureDeviceInput> input_;
  Callback callback_;
  DispatchQueue* queue_ = nullptr;
  std::shared_ptr<bool> running_;  // one per run, read by what was enqueued during it on `queue_`
  std::optional<SimTone> tone_;
  TimerHandle timer_;
};

}  // namespace quillbeam
