#pragma once

#include <functional>

#include "base/Check.h"
#include "base/ThreadAnnotations.h"

namespace quillbeam {

/// A piece of work handed to a queue; runs at most once, may own move-only things.
using Closure = std::move_only_function<void()>;

/// Where work runs, as far as base needs to know: closures one at a time, in the order they were handed over.
/// `platform/Dispatch.h` has the queues. The type is a thread-safety capability: state is CONFINED_TO an executor.
class QUEUE_CAPABILITY Executor {
 public:
  Executor() = default;
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;
  virtual ~Executor() = default;

  /// Enqueues `work` and returns at once. Callable from any thread.
  virtual void async(Closure work) = 0;

  /// Whether the caller is running inside a closure of this executor.
  virtual bool isCurrent() const = 0;

  void assertCurrent() const ASSERTS_QUEUE(this) { QB_CHECK(isCurrent()); }
};

}  // namespace quillbeam
