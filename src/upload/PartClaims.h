#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "base/Mutex.h"

namespace quillbeam {

/// The parts that somebody is about to transfer: from the decision until the transfer has begun. A claim ends when its
/// last holder lets go of it, also after this object. Any queue.
class PartClaims {
 public:
  using Claim = std::shared_ptr<void>;

  /// Beside whatever other claims there are.
  Claim claim(const std::string& sessionId, int partNumber) {
    MutexLock lock(state_->mutex);
    return state_->add({sessionId, partNumber}, state_);
  }
  /// nullptr when there is one.
  Claim claimUnlessClaimed(const std::string& sessionId, int partNumber) {
    MutexLock lock(state_->mutex);
    if (state_->parts.contains({sessionId, partNumber})) return nullptr;
    return state_->add({sessionId, partNumber}, state_);
  }
  std::set<int> partsOf(const std::string& sessionId) const {
    MutexLock lock(state_->mutex);
    std::set<int> found;
    for (const auto& [id, part] : state_->parts) {
      if (id == sessionId) found.insert(part);
    }
    return found;
  }

 private:
  using Part = std::pair<std::string, int>;
  struct State {
    Mutex mutex;
    std::multiset<Part> parts GUARDED_BY(mutex);

    Claim add(Part part, const std::shared_ptr<State>& self) REQUIRES_LOCK(mutex) {
      const auto entry = parts.insert(std::move(part));
      return {this, [self, entry](State* state) {
                MutexLock lock(state->mutex);
                state->parts.erase(entry);
              }};
    }
  };

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace quillbeam
