#include "cli/Interrupts.h"

#include <utility>

namespace quillbeam::cli {

Interrupts::Interrupts(CommandWorld& world, std::function<void()> onInsisting)
    : main_(world.platform().dispatch.main()), onInsisting_(std::move(onInsisting)) {
  world.deliverSignals([this](CommandWorld::EndWish wish) { arrived(wish); });
}

void Interrupts::arrived(CommandWorld::EndWish wish) {
  ++count_;
  if (wish == CommandWorld::EndWish::interrupt && ++interrupts_ > 1) onInsisting_();
  endWaiting();
}

void Interrupts::endWaiting() {
  if (waiter_) (*waiter_)(success);
}

Task<void> Interrupts::wait() {
  if (haveArrived()) co_return success;
  co_return co_await completed<void>([this](Completion<void> done) { waiter_ = std::move(done); });
}

Task<void> Interrupts::wait(Duration atMost) {
  if (haveArrived()) co_return success;
  TimerHandle timer;
  co_return co_await completed<void>([&](Completion<void> done) {
    timer = main_.after(atMost, [done] { done(success); });
    waiter_ = std::move(done);
  });
}

}  // namespace quillbeam::cli
