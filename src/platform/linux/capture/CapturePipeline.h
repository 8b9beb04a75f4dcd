#pragma once

#include <memory>
#include <vector>

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/capture/PicturePacer.h"
#include "platform/linux/capture/SampleDelivery.h"
#include "platform/linux/capture/SoundTrack.h"
#include "platform/linux/capture/StreamMerger.h"
#include "platform/linux/x11/ScreenSource.h"

namespace quillbeam {

/// What a running capture does at each tick: look at the screen, read the sounds, merge, deliver. Knows no thread and
/// no clock; whoever drives it says what time it is.
///
///     begin ── tick … tick ──► captureLast ── (mergeDelay later) ──► flush
class CapturePipeline {
 public:
  /// Sound is read this long after it sounded: time enough for it to come through a sound server.
  static constexpr MediaTime mergeDelay{150, 1000};

  /// The delivery outlives the pipeline.
  CapturePipeline(std::unique_ptr<ScreenSource> screen, std::vector<SoundTrack> sounds, MediaTime frameInterval,
                  SampleDelivery& delivery);

  /// Opens the sounds. The timeline starts at the tick that this answers.
  MediaTime begin(MediaTime now);
  MediaTime nextTickAfter(MediaTime now) const { return pacer_.nextTickAfter(now); }
  /// An error ends the capture: `ScreenCaptureError::displayGone`, `ScreenCaptureError::connectionLost`,
  /// `X11Error::outOfMemory`.
  Result<void> tick(MediaTime now, PicturePacer::Repeats repeats);

  /// Keeps a picture for the end: of the screen as it is now if it changed and can still be read, else the last one.
  void captureLast();
  bool hasSound() const { return !sounds_.empty(); }
  /// Delivers everything up to `end`, then the kept picture with that time.
  void flush(MediaTime end);

 private:
  Result<ScreenState> look(MediaTime now);
  Result<std::shared_ptr<const PixelBuffer>> picture(const PicturePacer::Decision& decision,
                                                     PicturePacer::Repeats repeats);
  void readSounds(MediaTime until);
  void deliver(std::vector<MergedSample> samples, SampleDelivery::Urgency urgency);
  SampleBuffer screenSample(MediaTime stamp) const;

  std::unique_ptr<ScreenSource> screen_;
  std::vector<SoundTrack> sounds_;
  PicturePacer pacer_;
  StreamMerger merger_;
  SampleDelivery& delivery_;
  std::shared_ptr<const PixelBuffer> lastPicture_;
  MediaTime absentSince_;  // invalid while the screen is there
};

}  // namespace quillbeam
