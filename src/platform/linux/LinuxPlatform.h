#pragma once

#include <memory>

#include "platform/Platform.h"

namespace quillbeam {

class LinuxDispatch;

/// Every port on real Linux parts. Made first thing on the main thread, destroyed last.
class LinuxPlatform {
 public:
  /// Where the system's own diagnostic lines go.
  enum class DiagnosticLines { standardOutput, standardError, systemLog };

  explicit LinuxPlatform(DiagnosticLines lines);
  ~LinuxPlatform();

  Platform& platform();
  /// The main queue's loop: `runMain`, `stopMain`.
  LinuxDispatch& dispatch();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace quillbeam
