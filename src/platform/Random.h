#pragma once

#include "base/Uuid.h"

namespace quillbeam {

class Random {
 public:
  virtual ~Random() = default;
  /// A fresh version 4 identifier. Any thread.
  virtual Uuid uuid() = 0;
};

}  // namespace quillbeam
