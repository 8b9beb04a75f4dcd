#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "FaultRule.h"

namespace quillbeam::service {

/// All rules of a service; every one that strikes adds its fault. For use by several threads.
class FaultRules {
 public:
  explicit FaultRules(std::vector<FaultRule> rules) : rules_(std::move(rules)) {}

  Fault judge(const Occasion& occasion) {
    const std::lock_guard lock(mutex_);
    Fault sum;
    for (FaultRule& rule : rules_) {
      if (const Fault* fault = rule.judge(occasion)) sum.add(*fault);
    }
    return sum;
  }

 private:
  std::mutex mutex_;
  std::vector<FaultRule> rules_;
};

}  // namespace quillbeam::service
