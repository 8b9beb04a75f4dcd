#pragma once

#include <string>
#include <utility>

#include "platform/Permissions.h"

namespace quillbeam {

/// X11 has nobody to ask: who can connect can read the screen, and sound servers let their user's programs listen.
class X11Permissions : public CapturePermissions {
 public:
  /// `displayName` as in $DISPLAY; empty stands for $DISPLAY itself.
  explicit X11Permissions(std::string displayName = {}) : displayName_(std::move(displayName)) {}

  bool preflightScreenCaptureAccess() override;
  bool requestScreenCaptureAccess() override { return preflightScreenCaptureAccess(); }
  AuthorizationStatus microphoneAuthorization() override { return AuthorizationStatus::authorized; }
  bool requestMicrophoneAccess() override { return true; }

 private:
  std::string displayName_;
};

}  // namespace quillbeam
