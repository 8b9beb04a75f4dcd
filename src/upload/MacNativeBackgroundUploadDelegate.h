#pragma once

#include "upload/MacNativeUploadSession.h"

namespace quillbeam {

/// An observer of the background uploads, told in addition to the notifications. Called on the queue on which things
/// happen: the transfers' own, or main.
class MacNativeBackgroundUploadDelegate {
 public:
  virtual ~MacNativeBackgroundUploadDelegate() = default;
  virtual void uploadDidConfirmPart(const MacNativeUploadSession& session, int partNumber) = 0;
  virtual void uploadPartDidFail(const MacNativeUploadSession& session, int partNumber, const Error& error) = 0;
  virtual void uploadDidComplete(const MacNativeUploadSession& session) = 0;
  virtual void uploadDidFail(const MacNativeUploadSession& session, const Error& error) = 0;
};

}  // namespace quillbeam
