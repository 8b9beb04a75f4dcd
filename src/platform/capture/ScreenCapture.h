#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Result.h"
#include "base/Task.h"
#include "platform/Dispatch.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

struct ShareableDisplay {
  std::uint32_t displayId = 0;
  int width = 0;  ///< pixels
  int height = 0;
  friend bool operator==(const ShareableDisplay&, const ShareableDisplay&) = default;
};

struct ShareableWindow {
  std::uint32_t windowId = 0;
  std::string title;            ///< empty when it has none
  std::string applicationName;  ///< empty when unknown
  friend bool operator==(const ShareableWindow&, const ShareableWindow&) = default;
};

/// The main display comes first.
struct ShareableContent {
  std::vector<ShareableDisplay> displays;
  std::vector<ShareableWindow> windows;
};

enum class OutputType { screen, audio, microphone };

/// Streams look at their display no more often than this.
inline constexpr MediaTime shortestFrameInterval{1, 24};

struct StreamConfiguration {
  int width = 0;  ///< of the delivered pictures; the display is scaled down to it when it is larger
  int height = 0;
  MediaTime minimumFrameInterval = shortestFrameInterval;  ///< a shorter one is taken for this
  bool capturesAudio = false;
  int sampleRate = 48'000;
  int channelCount = 2;
  bool excludesCurrentProcessAudio = false;
  PixelFormat pixelFormat = PixelFormat::bgra32;  ///< the display is read in it; see PixelBuffer for what arrives
  bool showsCursor = false;
  int queueDepth = 6;  ///< pictures that may wait for a busy output; beyond it new ones are dropped and counted
  bool captureMicrophone = false;
};

enum class SampleDisposition { taken, ignored };

class StreamOutput {
 public:
  virtual ~StreamOutput() = default;
  /// On the queue that the output was added with, one at a time. Answers whether the sample was used: until the first
  /// picture is taken, an unchanged screen is repeated at full rate, afterwards once a second.
  virtual SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) = 0;
};

class StreamDelegate {
 public:
  virtual ~StreamDelegate() = default;
  /// The stream ended by itself (the display went away, the server closed the connection). Main queue. Samples
  /// captured before were delivered; nothing follows.
  virtual void streamDidStopWithError(const Error& error) = 0;
};

/// Frames that the screen showed but the stream could not deliver.
struct StreamStatistics {
  std::int64_t framesDelivered = 0;
  std::int64_t framesDropped = 0;
};

/// A running capture of one display with its sound.
///
/// Timeline: all samples are stamped with the host clock (`Dispatch::hostTime`) and released in time-stamp order over
/// the three outputs, a small bounded delay after capture. Pictures lie on a grid of `minimumFrameInterval`. Sound
/// comes in blocks of at most 10 ms, contiguous to the sample: a source that is silent, suspended, missing or gone is
/// filled with timed silence and taken up again when it is back, drift against the host clock is corrected by
/// resampling.
class CaptureStream {
 public:
  /// Stops whatever runs. No output or delegate is called once it returns.
  virtual ~CaptureStream() = default;

  /// Before `startCapture`. The output and queue outlive the stream. Fails for a second output of the same type and
  /// for a type that the configuration does not capture.
  virtual Result<void> addStreamOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) = 0;
  /// Returns when the display is being captured and the sound sources are open or known to be missing.
  virtual Task<void> startCapture() = 0;
  /// Returns when everything captured up to the call has been delivered and its outputs have run; a last complete
  /// frame with the stop time comes before that. An error when the stream is not running.
  virtual Task<void> stopCapture() = 0;
  virtual StreamStatistics statistics() const = 0;  ///< any thread
};

enum class ScreenCaptureError {
  noDisplayServer,  ///< description names the display that did not answer
  noSoundServer,    ///< sound was asked for and no sound server answers
  displayGone,      ///< the captured display was disconnected or switched off
  connectionLost,   ///< the display server closed the connection
  duplicateOutput,  ///< an output of that type was added before
  notConfigured,    ///< that type of sample is not captured by this stream
  notRunning,
};
std::string describe(ScreenCaptureError error);
constexpr std::string_view errorDomain(ScreenCaptureError) { return "ScreenCaptureError"; }

/// Main queue, unless said otherwise.
class ScreenCapture {
 public:
  virtual ~ScreenCapture() = default;

  /// Displays (the main one first) and on-screen windows, desktop windows included. `noDisplayServer` when there is
  /// none.
  virtual Task<ShareableContent> shareableContent() = 0;
  /// What a stream that is wanted for its sound can be made of. Needs no display: a platform may offer a scripted one,
  /// whose streams deliver sound as all do, and with it a picture that never changes.
  virtual Task<ShareableContent> shareableContentForSound() = 0;
  /// A stream of the whole display. The delegate outlives the stream.
  virtual Result<std::unique_ptr<CaptureStream>> makeStream(const ShareableDisplay& display,
                                                            const StreamConfiguration& configuration,
                                                            StreamDelegate& delegate) = 0;
};

}  // namespace quillbeam
