#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

/// Why a recording's segments did not become an upload. Only `uploadDelegateNotSet` is raised here; the others are for
/// receivers that look inside segments.
enum class VideoChunkError { uploadFailed, invalidMP4Structure, fragmentNotComplete, uploadDelegateNotSet };
std::string describe(VideoChunkError error);
constexpr std::string_view errorDomain(VideoChunkError) { return "VideoChunkError"; }

}  // namespace quillbeam
