#pragma once

#include <chrono>
#include <compare>
#include <cstdint>

namespace quillbeam {

/// A point or span on a media timeline: value / timescale seconds, exact. Sample positions are built as
/// `MediaTime(frames, sampleRate)` from one running count and never pass through a double. Default-made times are
/// invalid; arithmetic with an invalid time is invalid.
class MediaTime {
 public:
  constexpr MediaTime() = default;
  constexpr MediaTime(std::int64_t value, std::int32_t timescale) : value_(value), timescale_(timescale) {}

  static constexpr MediaTime zero() { return {0, 1}; }
  static constexpr MediaTime invalid() { return {}; }
  static constexpr MediaTime nanoseconds(std::int64_t count) { return {count, 1'000'000'000}; }
  static MediaTime from(std::chrono::nanoseconds duration) { return nanoseconds(duration.count()); }
  /// Rounded to the nearest tick of `timescale`, halves away from zero.
  static MediaTime seconds(double seconds, std::int32_t timescale = 1'000'000'000);

  constexpr bool isValid() const { return timescale_ > 0; }
  constexpr std::int64_t value() const { return value_; }
  constexpr std::int32_t timescale() const { return timescale_; }

  double seconds() const { return static_cast<double>(value_) / timescale_; }
  std::chrono::nanoseconds toNanoseconds() const { return std::chrono::nanoseconds(rescaled(1'000'000'000).value()); }
  /// The same time in ticks of `timescale`, rounded to the nearest, halves away from zero.
  MediaTime rescaled(std::int32_t timescale) const;

  /// Exact while a common timescale fits 32 bits; beyond that, in nanoseconds.
  friend MediaTime operator+(MediaTime a, MediaTime b);
  friend MediaTime operator-(MediaTime a, MediaTime b);
  friend bool operator==(MediaTime a, MediaTime b);
  /// Ordered by what they mean, not by representation; invalid times are equal to each other and before all others.
  friend std::strong_ordering operator<=>(MediaTime a, MediaTime b);

 private:
  std::int64_t value_ = 0;
  std::int32_t timescale_ = 0;
};

}  // namespace quillbeam
