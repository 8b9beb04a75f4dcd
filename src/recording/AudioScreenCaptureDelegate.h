#pragma once

#include <functional>

#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"

namespace quillbeam {

/// Hears that the stream of a recording of sound ended by itself. The recording goes on until the user stops it;
/// `ended` lets it remember the reason for those who ask. Main queue.
class AudioScreenCaptureDelegate final : public StreamDelegate {
 public:
  AudioScreenCaptureDelegate(StandardOutput& out, std::function<void(const Error&)> ended)
      : out_(out), ended_(std::move(ended)) {}

  void streamDidStopWithError(const Error& error) override {
    out_.print("🎯 AudioScreenCaptureDelegate: Stream stopped with error: " + error.description());
    ended_(error);
  }

 private:
  StandardOutput& out_;
  std::function<void(const Error&)> ended_;
};

}  // namespace quillbeam
