#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace quillbeam {

/// A wall-clock moment (UTC), to the microsecond. Only the dispatch port knows the current one.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// "2026-03-09T07:05:00Z": ISO 8601, UTC, whole seconds (fractions are cut).
std::string iso8601(Date date);
/// Accepts what `iso8601` writes, fractions of a second and numeric offsets; else `CommonError::malformedData`.
Result<Date> parseIso8601(std::string_view text);
double secondsSince1970(Date date);

}  // namespace quillbeam
