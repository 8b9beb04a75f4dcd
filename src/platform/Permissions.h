#pragma once

namespace quillbeam {

/// Raw values as they appear in log lines.
enum class AuthorizationStatus { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

/// What the user allows this process to capture. Main queue, unless said otherwise.
class CapturePermissions {
 public:
  virtual ~CapturePermissions() = default;

  /// Whether the screen can be captured, without asking anyone. On X11: a display that answers.
  virtual bool preflightScreenCaptureAccess() = 0;
  /// Asks when asking is possible; the answer (which is `preflight`'s where nobody can be asked).
  virtual bool requestScreenCaptureAccess() = 0;

  virtual AuthorizationStatus microphoneAuthorization() = 0;
  /// Blocks until the user has answered. Only when the status is `notDetermined`.
  virtual bool requestMicrophoneAccess() = 0;
};

}  // namespace quillbeam
