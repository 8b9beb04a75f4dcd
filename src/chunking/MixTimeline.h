#pragma once

#include <cstdint>

#include "base/MediaTime.h"

namespace quillbeam {

/// Frames per second of the mix.
inline constexpr std::int32_t mixSampleRate = 48'000;

/// The distance in frames of the mix, rounded once, from the exact difference (halves away from zero): buffers that are
/// contiguous on their own clock stay so on the mix's, whatever clock the baseline was read from.
std::int64_t nearestFrames(MediaTime from, MediaTime to);

/// The same without the fraction. A time that was rounded to nanoseconds on its way, and so fell short of its frame,
/// still counts as that frame: a buffer one frame early would be summed with the end of the one before.
std::int64_t wholeFrames(MediaTime from, MediaTime to);

}  // namespace quillbeam
