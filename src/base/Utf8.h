#pragma once

#include <string>
#include <string_view>

namespace quillbeam {

/// Whether the text is well-formed UTF-8: no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool isUtf8(std::string_view text);

/// The text with U+FFFD in place of every byte that is not part of a well-formed character.
std::string replacingBadUtf8(std::string_view text);

}  // namespace quillbeam
