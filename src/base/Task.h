#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

#include "base/Executor.h"
#include "base/Result.h"

namespace quillbeam {

namespace detail {

/// What every coroutine of ours knows: the queue it runs on and who waits for it.
struct PromiseBase {
  Executor* executor = nullptr;
  std::coroutine_handle<> continuation;

  std::suspend_always initial_suspend() noexcept { return {}; }
  void unhandled_exception() noexcept { std::terminate(); }

  struct FinalAwaiter {
    bool await_ready() noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> finished) noexcept {
      auto continuation = finished.promise().continuation;
      return continuation ? continuation : std::noop_coroutine();
    }
    void await_resume() noexcept {}
  };
  FinalAwaiter final_suspend() noexcept { return {}; }
};

}  // namespace detail

/// An asynchronous operation that yields `Result<T>`. Lazy: it starts when it is awaited (or handed to a `TaskScope`)
/// and resumes on the queue of the task that awaits it, whatever thread completed what it waited for.
///
///     Task<Session> UploadManager::startSession(Recording recording) {
///       CO_TRY(auto init, co_await api_.initialize(recording));
///       co_return makeSession(recording, init);
///     }
///
/// A suspended task may be destroyed (that is how a `TaskScope` cancels): its locals are destroyed, nothing resumes.
/// g++ 12: no `co_await` inside `?:` or a braced initialiser; arguments of awaited calls in named variables.
template <class T>
class [[nodiscard]] Task {
 public:
  struct promise_type : detail::PromiseBase {
    std::optional<Result<T>> result;
    Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
    void return_value(Result<T> value) { result.emplace(std::move(value)); }
  };

  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Task() {
    if (handle_) handle_.destroy();
  }

  bool await_ready() const noexcept { return false; }
  template <class Promise>
  std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> awaiting) {
    handle_.promise().executor = awaiting.promise().executor;
    handle_.promise().continuation = awaiting;
    return handle_;
  }
  Result<T> await_resume() { return *std::move(handle_.promise().result); }

 private:
  explicit Task(std::coroutine_handle<promise_type> handle) : handle_(handle) {}
  std::coroutine_handle<promise_type> handle_;
};

}  // namespace quillbeam
