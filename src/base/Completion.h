#pragma once

#include <coroutine>
#include <memory>
#include <optional>
#include <utility>

#include "base/Executor.h"
#include "base/Mutex.h"
#include "base/Result.h"

namespace quillbeam {

namespace detail {

template <class T>
struct CompletionState {
  Mutex mutex;
  std::optional<Result<T>> result GUARDED_BY(mutex);
  std::coroutine_handle<> waiter GUARDED_BY(mutex);
  Executor* executor GUARDED_BY(mutex) = nullptr;
};

}  // namespace detail

/// The other end of `co_await completed<T>(…)`: call it once, from any thread. Later calls, and calls after the waiting
/// task was destroyed, do nothing. Copyable, so that it fits every callback type.
template <class T>
class Completion {
 public:
  explicit Completion(std::shared_ptr<detail::CompletionState<T>> state) : state_(std::move(state)) {}

  void operator()(Result<T> result) const {
    MutexLock lock(state_->mutex);
    if (state_->result) return;
    state_->result.emplace(std::move(result));
    if (!state_->waiter) return;
    state_->executor->async([state = state_] {
      std::coroutine_handle<> waiter;
      {
        MutexLock resumeLock(state->mutex);
        waiter = std::exchange(state->waiter, {});
      }
      if (waiter) waiter.resume();
    });
  }

 private:
  std::shared_ptr<detail::CompletionState<T>> state_;
};

/// Awaits a callback: `auto reply = co_await completed<Reply>([&](Completion<Reply> done) { port.ask(q, done); });`
/// The starter runs at once; the task resumes on its own queue (without a detour when the answer came at once).
template <class T, class Starter>
class CompletionAwaiter {
 public:
  explicit CompletionAwaiter(Starter starter) : starter_(std::move(starter)) {}
  CompletionAwaiter(const CompletionAwaiter&) = delete;
  CompletionAwaiter& operator=(const CompletionAwaiter&) = delete;
  ~CompletionAwaiter() {
    MutexLock lock(state_->mutex);
    state_->waiter = {};
  }

  bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> awaiting) {
    auto state = state_;
    starter_(Completion<T>(state));
    MutexLock lock(state->mutex);
    if (state->result) return false;
    state->executor = awaiting.promise().executor;
    state->waiter = awaiting;
    return true;
  }
  Result<T> await_resume() {
    MutexLock lock(state_->mutex);
    return *std::move(state_->result);
  }

 private:
  Starter starter_;
  std::shared_ptr<detail::CompletionState<T>> state_ = std::make_shared<detail::CompletionState<T>>();
};

template <class T, class Starter>
CompletionAwaiter<T, Starter> completed(Starter starter) {
  return CompletionAwaiter<T, Starter>(std::move(starter));
}

}  // namespace quillbeam
