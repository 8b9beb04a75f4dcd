#pragma once

#include <optional>
#include <string>
#include <variant>

#include "base/Value.h"

namespace quillbeam {

struct MethodCall {
  std::string method;
  Value arguments;
};

/// A structured error, as the UI layer gets it.
struct MethodError {
  std::string code;
  std::optional<std::string> message;
  Value details;
  bool operator==(const MethodError&) const = default;
};

/// The handler does not know the method, or nobody handles the channel.
struct NotImplemented {
  bool operator==(const NotImplemented&) const = default;
};

/// How a call was answered: a value (nil when there is none to give), an error, or not at all.
using MethodReply = std::variant<Value, MethodError, NotImplemented>;

}  // namespace quillbeam
