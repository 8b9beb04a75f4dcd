#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "platform/Dispatch.h"

namespace quillbeam {

/// The callers who wait for their upload to be made a file, by session. Whoever takes one out is the only one to call
/// it. Callable from any queue but its own; each call waits for it.
class FinalizationWaits {
 public:
  using Finalized = std::move_only_function<void(Result<void>)>;

  explicit FinalizationWaits(Dispatch& dispatch)
      : finalizationQueue_(dispatch.makeSerialQueue("io.quillbeam.macos.upload.finalization")) {}

  void insert(const std::string& sessionId, Finalized completion) {
    finalizationQueue_->sync([&] {
      finalizationQueue_->assertCurrent();
      finalizationCompletions_.insert_or_assign(sessionId, std::move(completion));
    });
  }

  std::optional<Finalized> take(const std::string& sessionId) {
    std::optional<Finalized> completion;
    finalizationQueue_->sync([&] {
      finalizationQueue_->assertCurrent();
      if (auto entry = finalizationCompletions_.extract(sessionId)) completion = std::move(entry.mapped());
    });
    return completion;
  }

  /// Tells the caller, if one still waits.
  void finish(const std::string& sessionId, Result<void> outcome) {
    if (auto completion = take(sessionId)) (*completion)(std::move(outcome));
  }

 private:
  std::map<std::string, Finalized> finalizationCompletions_ CONFINED_TO(*finalizationQueue_);
  std::unique_ptr<DispatchQueue> finalizationQueue_;
};

}  // namespace quillbeam
