#pragma once

#include "platform/Permissions.h"

namespace quillbeam {

/// A user who answers as the test says.
class SimPermissions final : public CapturePermissions {
 public:
  bool screenCaptureAccess = true;
  /// What the user would answer; becomes `screenCaptureAccess` when asked.
  bool grantsScreenCapture = true;
  AuthorizationStatus microphone = AuthorizationStatus::authorized;
  bool grantsMicrophone = true;
  int screenCaptureRequests = 0;
  int microphoneRequests = 0;

  bool preflightScreenCaptureAccess() override { return screenCaptureAccess; }
  bool requestScreenCaptureAccess() override {
    ++screenCaptureRequests;
    if (!screenCaptureAccess) screenCaptureAccess = grantsScreenCapture;
    return screenCaptureAccess;
  }
  AuthorizationStatus microphoneAuthorization() override { return microphone; }
  bool requestMicrophoneAccess() override {
    ++microphoneRequests;
    if (microphone == AuthorizationStatus::notDetermined) {
      microphone = grantsMicrophone ? AuthorizationStatus::authorized : AuthorizationStatus::denied;
    }
    return microphone == AuthorizationStatus::authorized;
  }
};

}  // namespace quillbeam
