#pragma once

#include <cstdint>

namespace quillbeam {

/// A reproducible stream of numbers (SplitMix64): the same seed gives the same stream on every machine and compiler.
class SimRandomSource {
 public:
  explicit SimRandomSource(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15u;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
    return mixed ^ (mixed >> 31);
  }
  /// In [0, bound).
  std::uint64_t below(std::uint64_t bound) { return next() % bound; }

 private:
  std::uint64_t state_;
};

}  // namespace quillbeam
