#pragma once

#include "platform/ProcessMemory.h"

namespace quillbeam {

/// From /proc/self/statm.
class ProcMemory final : public ProcessMemory {
 public:
  std::int64_t residentBytes() const override;
};

}  // namespace quillbeam
