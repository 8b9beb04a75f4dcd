#pragma once

#include <memory>
#include <vector>

#include "base/MediaTime.h"
#include "base/Result.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// A sound that a capture thread pulls, on the host clock's timeline.
///
/// One thread uses a source: it is opened, started, read and destroyed there. Nothing here blocks for longer than it
/// takes to open a connection, and `readUntil` never waits for the server: its caller has a picture to grab.
///
/// Timeline: the stream of blocks begins exactly at `start`'s time and is contiguous to the sample from there on: each
/// block's time stamp is the start plus (frames so far) / sampleRate. The implementation keeps that clock disciplined
/// to the host clock (drift is resampled away, jumps are corrected hard), fills what the source did not deliver in time
/// (it is silent, suspended, unplugged, its server is gone) with silence, and takes the source up again when it is
/// back.
class SoundSource {
 public:
  /// Ends the recording of the source; blocks not yet read are lost.
  virtual ~SoundSource() = default;

  /// Blocks are contiguous from host time `from` on; sound captured before is left out. Called once, before
  /// `readUntil`. An error means that the source will never deliver, not even silence, and need not be read.
  virtual Result<void> start(MediaTime from) = 0;

  /// Every block not yet read that ends at or before `hostTime`: 48 kHz stereo unless the opener said otherwise, at
  /// most 10 ms each, in order. Called with a time a bounded delay (150 ms or more) behind the host clock, so that what
  /// has not arrived by then counts as silence; times never go back. Empty when the last block read ended less than one
  /// block before `hostTime`.
  virtual std::vector<SampleBuffer> readUntil(MediaTime hostTime) = 0;

  /// Whether sound (rather than the silence in its place) has been arriving lately. For log lines and tests.
  virtual bool isDelivering() const = 0;
};

/// Opens the sounds of this computer. Used by capture threads: safe from any thread, also from several at once.
/// Outlives the sources it opens.
class SoundSources {
 public:
  virtual ~SoundSources() = default;

  /// What the default output plays. `ScreenCaptureError::noSoundServer` when no sound server answers; a server without
  /// an output is no failure but a silent source.
  virtual Result<std::unique_ptr<SoundSource>> openSystemAudio() = 0;
  /// What the default input hears. Fails likewise; a missing microphone is a silent source.
  virtual Result<std::unique_ptr<SoundSource>> openMicrophone() = 0;
};

}  // namespace quillbeam
