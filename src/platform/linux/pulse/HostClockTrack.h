#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/MediaTime.h"
#include "platform/linux/pulse/FractionalResampler.h"
#include "platform/linux/pulse/SoundTimeline.h"
#include "platform/linux/pulse/SourceClock.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// Whether a piece of captured sound follows the one before it without a missing frame.
enum class Continuity { continues, restarts };

/// Sound as a device delivered it.
struct CapturedSound {
  std::span<const float> samples;  ///< stereo, interleaved
  int sampleRate = 48'000;
  /// When its first frame happened (nanoseconds), where that was measured: at every restart and now and then later.
  std::optional<std::int64_t> hostTime;
  Continuity continuity = Continuity::continues;
};

/// Turns captured sound with noisy time stamps into one stream of 48 kHz stereo blocks on the host clock.
///
/// The stream begins at a given time and is contiguous to the sample for ever; block times are exact, on the grid of
/// the sample rate. A source is placed by its first stamp; afterwards its frames are counted, a `SourceClock` learns
/// from all stamps how its crystal runs, and the resampler's step follows so gently (0.2 % at most) that nobody hears
/// it. Only what is off by more than 60 ms is set right at once: when the source restarted, when nothing was left of it
/// to read, or when its stamps insisted for a third of a second. What was not written by the time it is read is
/// silence; what comes for a time that was read already is left out. Confined to its owner.
class HostClockTrack {
 public:
  /// `start` on the host clock is rounded to the nearest frame.
  explicit HostClockTrack(MediaTime start);

  void write(const CapturedSound& sound);
  /// Every whole block that ends at or before `hostTime`.
  std::vector<SampleBuffer> readUntil(MediaTime hostTime);

  static constexpr int sampleRate = 48'000;
  static constexpr int channels = 2;
  static constexpr int framesPerBlock = 480;

 private:
  /// Sound that belongs together: one source, one clock, no jump.
  struct Piece {
    SourceClock clock;
    FractionalResampler resampler;
    int sourceRate;
    std::int64_t framesTaken = 0;  ///< of the source
  };
  /// Stamps that all say that the source jumped.
  struct Doubt {
    int stamps = 0;
    double surpriseSum = 0;
    std::int64_t since = 0;  ///< frame of the first one
  };

  void beginPiece(int sourceRate, std::int64_t hostTime, double drift);
  void endPiece();
  void weighStamp(std::int64_t hostTime);
  bool ranDry() const { return nextFrame_ < timeline_.readPosition(); }
  double step() const;
  void place();
  double secondsOf(std::int64_t frame, std::int64_t sinceHostTime) const;

  SoundTimeline timeline_;
  std::optional<Piece> piece_;
  Doubt doubt_;
  std::int64_t nextFrame_;  ///< of the host's grid: where the piece's next resampled frame belongs
  std::vector<float> resampled_;
};

}  // namespace quillbeam
