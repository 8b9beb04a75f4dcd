#pragma once

#include <functional>
#include <memory>

#include "platform/Platform.h"

namespace quillbeam {

/// Every port on real Linux parts, and the loop of the main queue. Made first thing on the main thread, destroyed last.
class LinuxPlatform {
 public:
  /// Where the system's own diagnostic lines go.
  enum class DiagnosticLines { standardOutput, standardError, systemLog };

  /// Whether this process shows windows. Without a display that answers none does.
  enum class Windows { none, onTheDisplay };

  LinuxPlatform(DiagnosticLines lines, Windows windows);
  ~LinuxPlatform();

  Platform& platform();

  /// Runs main's closures, and windows, until `stop`; main thread only, not inside a closure.
  void run();
  /// Any thread.
  void stop();
  /// `ended` runs on the main thread when the desktop wants this process to end. Once, before `run`.
  void onDesktopEnd(std::function<void()> ended);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace quillbeam
