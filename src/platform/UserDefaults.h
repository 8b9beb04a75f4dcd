#pragma once

#include <string_view>

#include "base/Value.h"

namespace quillbeam {

/// Small settings that survive restarts, by key. Values are nil, bool, integers, doubles, strings, and lists and
/// string-keyed maps of those. `set` is visible to `get` at once and durable soon (a failed write is logged, retried
/// with the next `set`). Main queue only.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// nil when the key was never set.
  virtual Value get(std::string_view key) const = 0;
  /// nil removes the key.
  virtual void set(std::string_view key, Value value) = 0;
};

}  // namespace quillbeam
