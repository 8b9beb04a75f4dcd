#pragma once

#include <string_view>

namespace quillbeam::cli {

/// A line for the person at the terminal: "quillbeam: …" on standard error.
void complain(std::string_view text);

/// A line of the command's result, on standard output at once. False when nobody reads it any more.
bool printLine(std::string_view line);

}  // namespace quillbeam::cli
