#include "base/MediaTime.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace quillbeam {

namespace {

using Wide = __int128;

constexpr std::int32_t nanosecondScale = 1'000'000'000;

std::int64_t divideRounded(Wide numerator, Wide denominator) {
  const Wide half = denominator / 2;
  return static_cast<std::int64_t>(numerator >= 0 ? (numerator + half) / denominator
                                                  : -((-numerator + half) / denominator));
}

std::int32_t commonTimescale(std::int32_t a, std::int32_t b) {
  const std::int64_t common = std::lcm<std::int64_t>(a, b);
  return common <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(common) : nanosecondScale;
}

template <class Operation>
MediaTime combine(MediaTime a, MediaTime b, Operation operation) {
  if (!a.isValid() || !b.isValid()) return MediaTime::invalid();
  const std::int32_t scale = commonTimescale(a.timescale(), b.timescale());
  return {operation(a.rescaled(scale).value(), b.rescaled(scale).value()), scale};
}

}  // namespace

MediaTime MediaTime::seconds(double seconds, std::int32_t timescale) {
  return {static_cast<std::int64_t>(std::llround(seconds * timescale)), timescale};
}

MediaTime MediaTime::rescaled(std::int32_t timescale) const {
  if (!isValid() || timescale == timescale_) return *this;
  return {divideRounded(static_cast<Wide>(value_) * timescale, timescale_), timescale};
}

MediaTime operator+(MediaTime a, MediaTime b) { return combine(a, b, std::plus<std::int64_t>()); }
MediaTime operator-(MediaTime a, MediaTime b) { return combine(a, b, std::minus<std::int64_t>()); }

bool operator==(MediaTime a, MediaTime b) { return (a <=> b) == std::strong_ordering::equal; }

std::strong_ordering operator<=>(MediaTime a, MediaTime b) {
  if (!a.isValid() || !b.isValid()) return a.isValid() <=> b.isValid();
  const Wide left = static_cast<Wide>(a.value_) * b.timescale_;
  const Wide right = static_cast<Wide>(b.value_) * a.timescale_;
  return left < right   ? std::strong_ordering::less
         : left > right ? std::strong_ordering::greater
                        : std::strong_ordering::equal;
}

}  // namespace quillbeam
