#pragma once

#include <string>

namespace quillbeam {

/// Where uploaded media comes from.
enum class MacUploadSourceType { audio, screen, fileImport };

/// What the service calls it.
std::string sourceText(MacUploadSourceType type);

}  // namespace quillbeam
