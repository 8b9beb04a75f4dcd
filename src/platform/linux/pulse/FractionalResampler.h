#pragma once

#include <span>
#include <vector>

namespace quillbeam {

/// Reads a stereo signal at positions between its frames: band-limited interpolation (a windowed sinc over 32 frames)
/// whose step may change from call to call. It has no hidden delay: the frame it gives for position x is the signal at
/// x. For steps up to about 1.1, as it does not narrow the band for downsampling. Before its first frame the signal is
/// silent. Confined to its owner; buffers what lies ahead of the position plus 32 frames.
class FractionalResampler {
 public:
  /// `position`: where the first frame is read, in frames since the signal's first one; not negative.
  explicit FractionalResampler(double position = 0);

  /// Appends interleaved stereo frames to the signal.
  void push(std::span<const float> samples);
  /// Ends the signal with the silence that the last frames need around them to be read.
  void pushSilentTail();

  /// Appends to `output` every frame that can be read so far, moving the position by `step` after each.
  void produce(double step, std::vector<float>& output);

  /// How many frames of the signal lie ahead of the position; negative when it is beyond the end.
  double framesAhead() const;

 private:
  void interpolate(float* frame) const;
  void forgetBehindPosition();

  std::vector<float> buffer_;
  double position_;  ///< in frames of the buffer
};

}  // namespace quillbeam
