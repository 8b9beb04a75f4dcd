#pragma once

#include <functional>
#include <optional>

#include "base/Completion.h"
#include "base/Task.h"
#include "cli/CommandWorld.h"

namespace quillbeam::cli {

/// The wish to stop, the user's or the system's, as something to wait for. One per world, made before it runs and
/// outliving the run. Main queue.
class Interrupts {
 public:
  /// `onInsisting` runs at the second Ctrl-C and at every further one.
  Interrupts(CommandWorld& world, std::function<void()> onInsisting);

  bool haveArrived() const { return count_ > 0; }
  /// Ends at the first wish, at once when it has come already.
  Task<void> wait();
  /// The same, and after `atMost` in any case.
  Task<void> wait(Duration atMost);
  /// What came so far is dealt with: the next one is a first one again.
  void forget() { count_ = interrupts_ = 0; }
  /// Ends a wait that is under way.
  void endWaiting();

 private:
  void arrived(CommandWorld::EndWish wish);

  DispatchQueue& main_;
  std::function<void()> onInsisting_;
  int count_ = 0;
  int interrupts_ = 0;
  std::optional<Completion<void>> waiter_;
};

}  // namespace quillbeam::cli
