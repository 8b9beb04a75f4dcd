#pragma once

#include <coroutine>
#include <set>
#include <utility>

#include "base/Executor.h"
#include "base/Task.h"

namespace quillbeam {

/// Owns running tasks of one queue. `start` runs a task up to its first wait; destroying the scope (on its queue, not
/// from inside one of its tasks) destroys what is still suspended, so no task outlives what it refers to.
///
///     class Service { TaskScope tasks_{queue_}; };   // declared last: the first to go
class TaskScope {
 public:
  explicit TaskScope(Executor& executor) : executor_(executor) {}
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;
  ~TaskScope() { cancelAll(); }

  template <class T>
  void start(Task<T> task) {
    start(std::move(task), [](Result<T>) {});
  }

  /// `done(Result<T>)` runs on the scope's queue when the task has ended; not at all when it was cancelled.
  template <class T, class Done>
  void start(Task<T> task, Done done) {
    executor_.assertCurrent();
    Root root = run(std::move(task), std::move(done));
    root.handle.promise().executor = &executor_;
    root.handle.promise().scope = this;
    running_.insert(root.handle.address());
    root.handle.resume();
  }

  /// Destroys every suspended task.
  void cancelAll();
  bool isIdle() const { return running_.empty(); }

 private:
  struct Root {
    struct promise_type {
      Executor* executor = nullptr;
      TaskScope* scope = nullptr;
      Root get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
      std::suspend_always initial_suspend() noexcept { return {}; }
      auto final_suspend() noexcept {
        struct Retire {
          bool await_ready() noexcept { return false; }
          void await_suspend(std::coroutine_handle<promise_type> root) noexcept {
            root.promise().scope->running_.erase(root.address());
            root.destroy();
          }
          void await_resume() noexcept {}
        };
        return Retire{};
      }
      void return_void() {}
      void unhandled_exception() noexcept { std::terminate(); }
    };
    std::coroutine_handle<promise_type> handle;
  };

  template <class T, class Done>
  static Root run(Task<T> task, Done done) {
    auto result = co_await std::move(task);
    done(std::move(result));
  }

  Executor& executor_;
  std::set<void*> running_;
};

}  // namespace quillbeam
