#pragma once

#include <map>
#include <string>

#include "platform/UserDefaults.h"

namespace quillbeam {

/// Settings in memory. They outlive a simulated process as long as this object does.
class SimUserDefaults final : public UserDefaults {
 public:
  Value get(std::string_view key) const override {
    const auto found = values_.find(key);
    return found == values_.end() ? Value() : found->second;
  }
  void set(std::string_view key, Value value) override {
    if (value.isNil()) {
      values_.erase(std::string(key));
    } else {
      values_.insert_or_assign(std::string(key), std::move(value));
    }
  }

 private:
  std::map<std::string, Value, std::less<>> values_;
};

}  // namespace quillbeam
