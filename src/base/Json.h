#pragma once

#include <string>
#include <string_view>

#include "base/Result.h"
#include "base/Value.h"

namespace quillbeam {

enum class JsonLayout { compact, indented };

/// JSON text of a value: members in the map's order; typed number lists as arrays; bytes as base64 strings. Map keys
/// that are no strings, text that is not UTF-8, numbers that JSON has no word for (NaN, infinities) and nesting deeper
/// than 128 levels give `CommonError::unsupported`.
Result<std::string> toJson(const Value& value, JsonLayout layout = JsonLayout::compact);

/// Integers become int32 when they fit, else int64; other numbers double. Bad text, bad UTF-8, a member named twice,
/// nesting deeper than 128 levels: `CommonError::malformedData` with the position in the description.
Result<Value> parseJson(std::string_view text);

}  // namespace quillbeam
