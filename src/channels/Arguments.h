#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/Value.h"

namespace quillbeam {

/// Typed look-ups in a call's arguments; nullopt when they are no map, or the entry is missing or of another type.
/// A view: the value outlives it.
class Arguments {
 public:
  explicit Arguments(const Value& arguments) : arguments_(arguments) {}

  bool isMap() const { return arguments_.asMap() != nullptr; }
  std::optional<std::string> string(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const { return arguments_.at(key).asBool(); }
  /// Both integer widths: the UI's codec picks by magnitude.
  std::optional<std::int64_t> integer(std::string_view key) const { return arguments_.at(key).asInteger(); }
  /// A double; an integer too, since the UI layer writes 480.0 and 480 alike.
  std::optional<double> number(std::string_view key) const;
  std::optional<ValueMap> map(std::string_view key) const;
  std::optional<ValueList> list(std::string_view key) const;

 private:
  const Value& arguments_;
};

}  // namespace quillbeam
