#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Result.h"
#include "platform/Dispatch.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

struct CaptureDevice {
  std::string uniqueId;
  std::string name;  ///< as the user knows it
};

/// A device opened for capture.
class CaptureDeviceInput {
 public:
  virtual ~CaptureDeviceInput() = default;
};

/// Moves sound from one device input to one output. Main queue, unless said otherwise.
class CaptureSession {
 public:
  using Callback = std::function<void(const SampleBuffer& sample)>;

  /// Stops when running; no callback runs once it returns.
  virtual ~CaptureSession() = default;

  /// False when the session has an input already.
  virtual bool addInput(std::unique_ptr<CaptureDeviceInput> input) = 0;
  /// Samples arrive on `queue`: 48 kHz stereo in blocks of at most 10 ms, stamped with the host clock, contiguous.
  /// False when the session has an output already.
  virtual bool addAudioDataOutput(Callback callback, DispatchQueue& queue) = 0;
  virtual void startRunning() = 0;
  /// Returns when no callback is running or will run.
  virtual void stopRunning() = 0;
};

class CaptureDevices {
 public:
  virtual ~CaptureDevices() = default;

  /// nullopt when no microphone is connected; a monitor of an output is none.
  virtual std::optional<CaptureDevice> defaultAudioDevice() = 0;
  virtual Result<std::unique_ptr<CaptureDeviceInput>> makeInput(const CaptureDevice& device) = 0;
  virtual std::unique_ptr<CaptureSession> makeSession() = 0;
};

}  // namespace quillbeam
