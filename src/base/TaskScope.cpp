#include "base/TaskScope.h"

namespace quillbeam {

void TaskScope::cancelAll() {
  while (!running_.empty()) {
    void* frame = *running_.begin();
    running_.erase(running_.begin());
    std::coroutine_handle<>::from_address(frame).destroy();
  }
}

}  // namespace quillbeam
