#pragma once

#include "platform/Random.h"
#include "platform/sim/SimRandomSource.h"

namespace quillbeam {

/// Identifiers that a seed repeats. One thread.
class SeededRandom final : public Random {
 public:
  explicit SeededRandom(std::uint64_t seed) : source_(seed) {}

  Uuid uuid() override {
    Uuid::Bytes bytes;
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(source_.next() >> 56);
    return Uuid::fromRandom(bytes);
  }

 private:
  SimRandomSource source_;
};

}  // namespace quillbeam
