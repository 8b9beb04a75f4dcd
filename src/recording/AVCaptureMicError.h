#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

/// Why the microphone of a capture-device session could not be captured.
enum class AVCaptureMicError {
  inputCreationFailed,  ///< made by `inputCreationFailed(reason)`: the reason is part of the text
  permissionDenied,
  noMicrophoneDevice,
  cannotAddInput,
  cannotAddOutput,
};
std::string describe(AVCaptureMicError error);
constexpr std::string_view errorDomain(AVCaptureMicError) { return "AVCaptureMicError"; }

Error inputCreationFailed(Error reason);

}  // namespace quillbeam
