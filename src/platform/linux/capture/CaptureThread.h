#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "base/Completion.h"
#include "base/Mutex.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/linux/capture/CapturePipeline.h"
#include "platform/linux/x11/ScreenGrabber.h"

namespace quillbeam {

/// The one thread of a running capture: opens the screen and the sounds, ticks on the frame grid, ends once.
///
///     opening ──started──► running ──stop──► draining ──stopped──► ended
///        └──failed──► ended    └──the screen went away──► draining ──endedByItself──► ended
class CaptureThread {
 public:
  struct Plan {
    Dispatch& dispatch;
    SoundSources& sounds;
    SystemLog& log;
    std::shared_ptr<SampleDelivery> delivery;
    GrabberOptions screen;
    StreamConfiguration configuration;
    /// On the capture thread, after everything captured was posted. Not after `stop`.
    std::function<void(Error)> endedByItself;
  };

  explicit CaptureThread(Plan plan) : plan_(std::move(plan)) {}
  /// Ends the capture without delivering more and waits for the thread (a frame's time at most, unless the display
  /// server keeps it waiting). A pending start or stop gets `CommonError::cancelled`.
  ~CaptureThread();
  CaptureThread(const CaptureThread&) = delete;
  CaptureThread& operator=(const CaptureThread&) = delete;

  /// Once. `started` gets the screen's error when that cannot be captured.
  void start(Completion<void> started);
  /// Once, after the start succeeded. `stopped` comes when everything up to `end`, and the last picture, was posted;
  /// `ScreenCaptureError::notRunning` when the capture had ended by itself.
  void stop(MediaTime end, Completion<void> stopped);
  /// From here on an unchanged screen is repeated once a second, as soon as a picture was taken. Any thread.
  void startHasReturned() { startHasReturned_ = true; }
  bool hasEnded() const { return hasEnded_; }

 private:
  struct StopRequest {
    MediaTime end;
    Completion<void> stopped;
  };

  void run(const Completion<void>& started);
  Result<std::unique_ptr<ScreenSource>> openScreen();
  Result<std::unique_ptr<CapturePipeline>> open();
  Result<void> tickUntilTold(CapturePipeline& pipeline, MediaTime firstTick);
  void drain(CapturePipeline& pipeline, MediaTime end);
  void finish(Result<void> outcome);
  std::optional<StopRequest> stopRequest();
  PicturePacer::Repeats repeats() const;
  /// False when the capture was given up meanwhile.
  bool sleepUntil(MediaTime time) const;

  Plan plan_;
  std::atomic<bool> startHasReturned_ = false;
  std::atomic<bool> givenUp_ = false;
  std::atomic<bool> hasEnded_ = false;
  Mutex mutex_;
  std::optional<StopRequest> stopRequest_ GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace quillbeam
