#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

/// Why an audio recording's segments did not become an upload. `flutterBridgeNotSet` is for creators that upload
/// through the UI layer.
enum class AudioChunkError { uploadFailed, flutterBridgeNotSet, uploadDelegateNotSet };
std::string describe(AudioChunkError error);
constexpr std::string_view errorDomain(AudioChunkError) { return "AudioChunkError"; }

}  // namespace quillbeam
