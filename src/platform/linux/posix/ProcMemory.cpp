#include "platform/linux/posix/ProcMemory.h"

#include <unistd.h>

#include <fstream>

namespace quillbeam {

std::int64_t ProcMemory::residentBytes() const {
  std::ifstream statm("/proc/self/statm");
  std::int64_t total = 0;
  std::int64_t resident = 0;
  if (!(statm >> total >> resident)) return 0;
  return resident * ::sysconf(_SC_PAGESIZE);
}

}  // namespace quillbeam
