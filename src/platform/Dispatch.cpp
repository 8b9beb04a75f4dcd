#include "platform/Dispatch.h"

namespace quillbeam {

Task<void> delay(DispatchQueue& queue, Duration duration) {
  TimerHandle timer;
  co_return co_await completed<void>(
      [&](Completion<void> done) { timer = queue.after(duration, [done] { done(success); }); });
}

Task<void> drained(DispatchQueue& queue) {
  co_return co_await completed<void>([&](Completion<void> done) { queue.async([done] { done(success); }); });
}

}  // namespace quillbeam
