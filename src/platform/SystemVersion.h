#pragma once

#include <compare>

namespace quillbeam {

/// The version of the system's capture services, which decides where microphone samples come from.
struct SystemVersion {
  int major = 15;
  int minor = 0;
  auto operator<=>(const SystemVersion&) const = default;
};

/// From this version on the screen stream itself captures the microphone; before it a capture-device session does. On
/// Linux both ways exist; the default is the stream, and QUILLBEAM_SYSTEM_VERSION=14.4 selects the other one.
inline constexpr SystemVersion streamCapturesMicrophone{15, 0};

}  // namespace quillbeam
