#pragma once

#include "platform/ProcessMemory.h"

namespace quillbeam {

class SimProcessMemory final : public ProcessMemory {
 public:
  std::int64_t residentBytes() const override { return std::int64_t{64} << 20; }
};

}  // namespace quillbeam
