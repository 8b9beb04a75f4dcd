#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace quillbeam {

/// Turns stereo sound down, both channels alike, so that no sample exceeds the ceiling: gently, from a few milliseconds
/// before a peak until some time after it, instead of cutting the peak off. Quieter sound passes untouched. The needed
/// gain is held over the look-ahead, released exponentially and averaged over the look-ahead; each sample's gain is
/// then a mean of values none of which exceeds what it needs. (Giannoulis, Massberg, Reiss: Digital Dynamic Range
/// Compressor Design, J. Audio Eng. Soc. 60, 2012, treats the smoothing.) One thread at a time.
class PeakLimiter {
 public:
  /// How far the output lags behind the input, in frames: 5 ms.
  static constexpr int lookAhead = 240;
  /// -1 dB of full scale: lossy coding adds peaks of its own (EBU R 128 asks for this distance).
  static constexpr float ceiling = 0.891F;

  /// Interleaved stereo at 48 kHz, replaced by what entered `lookAhead` frames before (silence at first).
  void process(std::span<float> block);

 private:
  struct Needed {
    std::int64_t position = 0;
    float gain = 1;
  };

  bool isIdle() const { return framesAtRest_ > lookAhead; }
  /// The gain for the frame that entered `lookAhead` frames ago; `peak` is the one of the frame that enters now.
  float nextGain(float peak);

  std::vector<float> delayed_ = std::vector<float>(2 * lookAhead);  ///< the last frames that entered
  std::vector<float> scratch_;
  std::deque<Needed> needed_;  ///< rising gains: the first is the smallest within the look-ahead
  std::array<float, lookAhead + 1> released_ = filledWithOnes();
  double sum_ = lookAhead + 1;  ///< of `released_`
  float gain_ = 1;              ///< the last one in `released_`
  std::int64_t position_ = 0;
  std::int64_t framesAtRest_ = lookAhead + 1;  ///< frames since gain_ was below 1

  static constexpr std::array<float, lookAhead + 1> filledWithOnes() {
    std::array<float, lookAhead + 1> ones{};
    ones.fill(1);
    return ones;
  }
};

}  // namespace quillbeam
