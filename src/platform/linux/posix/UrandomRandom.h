#pragma once

#include "platform/Random.h"

namespace quillbeam {

/// The kernel's random numbers (getrandom).
class UrandomRandom final : public Random {
 public:
  Uuid uuid() override;
};

}  // namespace quillbeam
