#pragma once

#include <memory>

#include "base/Weakly.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/linux/capture/CaptureThread.h"

namespace quillbeam {

/// A stream of one display of an X server with its sounds. Main queue; the capture itself runs on a thread of its own
/// that exists from start to stop. A stopped stream may be started again.
class LinuxCaptureStream final : public CaptureStream, public WeaklyHeld {
 public:
  struct Parts {
    Dispatch& dispatch;
    SoundSources& sounds;
    SystemLog& log;
  };

  LinuxCaptureStream(Parts parts, GrabberOptions screen, StreamConfiguration configuration, StreamDelegate& delegate);
  ~LinuxCaptureStream() override;

  Result<void> addStreamOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) override;
  Task<void> startCapture() override;
  Task<void> stopCapture() override;
  StreamStatistics statistics() const override;

 private:
  bool captures(OutputType type) const;
  CaptureThread::Plan plan();
  void tellDelegate(Error error);

  Parts parts_;
  GrabberOptions screen_;
  StreamConfiguration configuration_;
  StreamDelegate& delegate_;
  DispatchQueue& main_;
  std::shared_ptr<SampleDelivery> delivery_;
  std::unique_ptr<CaptureThread> thread_ CONFINED_TO(main_);
  bool stopping_ CONFINED_TO(main_) = false;
};

}  // namespace quillbeam
