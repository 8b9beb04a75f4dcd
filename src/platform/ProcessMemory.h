#pragma once

#include <cstdint>

namespace quillbeam {

/// What this process costs. Any thread.
class ProcessMemory {
 public:
  virtual ~ProcessMemory() = default;
  /// Bytes of it that are in memory; 0 when the system does not say.
  virtual std::int64_t residentBytes() const = 0;
};

}  // namespace quillbeam
