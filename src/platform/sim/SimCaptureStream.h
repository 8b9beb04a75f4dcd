#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "base/Weakly.h"
#include "platform/Dispatch.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {

enum class SimSamples {
  byItself,  ///< pictures on the frame grid and tones, as a real stream delivers them
  byHand,    ///< only what the test delivers
};

enum class SimScreen { moving, still };

/// What a simulated stream does and fails at.
struct SimCaptureScript {
  SimSamples samples = SimSamples::byItself;
  SimScreen screen = SimScreen::moving;
  double systemTone = 440;  ///< Hz; 0 is silence
  double microphoneTone = 880;
  Duration startTakes{0};
  Duration stopTakes{0};
  std::map<OutputType, Error> addOutputErrors;
  std::optional<Error> startError;
  std::optional<Error> stopError;  ///< the capture ends all the same
};

/// A stream in the time of its dispatch. By itself it keeps the port's contract: merged time-stamp order, repeats of a
/// still screen (every frame until the start has returned and a picture was taken, then every second), a last frame
/// with the stop time, pictures beyond the queue's depth dropped and counted. Main queue.
class SimCaptureStream final : public CaptureStream, public WeaklyHeld {
 public:
  using Gone = std::function<void(SimCaptureStream*)>;

  /// `script` is read through while the stream exists.
  SimCaptureStream(Dispatch& dispatch, const SimCaptureScript& script, StreamConfiguration configuration,
                   StreamDelegate& delegate, Gone gone);
  ~SimCaptureStream() override;

  Result<void> addStreamOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) override;
  Task<void> startCapture() override;
  Task<void> stopCapture() override;
  StreamStatistics statistics() const override;

  // The test's side.

  bool isRunning() const { return running_; }
  bool hasOutput(OutputType type) const { return lane(type) != nullptr; }
  /// Hands a sample to its output as it is, whatever the contract says; without an output nothing happens.
  void deliver(OutputType type, SampleBuffer sample);
  /// A grey picture of the configured size; nullopt is a sample without attachments.
  void deliverPicture(MediaTime stamp, std::optional<FrameStatus> status = FrameStatus::complete);
  /// A block of silence.
  void deliverSound(OutputType type, MediaTime stamp, int frames = SimTone::blockFrames);
  /// A still screen shows something new from the next tick on.
  void changeScreen() { changed_ = true; }
  /// Everything captured is delivered, then the delegate hears of it.
  void stopByItself(Error error);

 private:
  struct Counters;
  struct Lane;
  struct Sound {
    OutputType type;
    SimTone tone;
  };

  const std::shared_ptr<Lane>& lane(OutputType type) const { return lanes_[static_cast<std::size_t>(type)]; }
  bool captures(OutputType type) const;
  void begin();
  MediaTime tickTime(std::int64_t tick) const;
  void scheduleTick();
  void tick();
  bool isPictureDue(MediaTime stamp) const;
  SampleBuffer picture(MediaTime stamp, std::optional<FrameStatus> status);
  void deliverUntil(MediaTime time);
  void end(MediaTime time);
  Task<void> allDelivered();

  Dispatch& dispatch_;
  const SimCaptureScript& script_;
  StreamConfiguration configuration_;
  StreamDelegate& delegate_;
  Gone gone_;
  std::shared_ptr<Counters> counters_;
  std::array<std::shared_ptr<Lane>, 3> lanes_;  // by OutputType

  bool running_ = false;
  bool startHasReturned_ = false;
  bool changed_ = true;
  std::uint8_t luma_ = 16;
  std::int64_t nextTick_ = 0;
  MediaTime lastStamp_;
  std::optional<SampleBuffer> heldPicture_;  // until the sounds have passed it
  std::vector<Sound> sounds_;
  TimerHandle timer_;
};

}  // namespace quillbeam
