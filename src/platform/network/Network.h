#pragma once

#include <memory>

#include "platform/network/BackgroundTransfers.h"
#include "platform/network/HttpSession.h"

namespace quillbeam {

/// The way to services. Sessions must be gone before it is.
class Network {
 public:
  virtual ~Network() = default;
  virtual std::unique_ptr<HttpSession> makeSession(HttpSessionOptions options) = 0;
  /// The delegate outlives the session.
  virtual std::unique_ptr<BackgroundTransferSession> makeBackgroundSession(BackgroundTransferOptions options,
                                                                           BackgroundTransferDelegate& delegate) = 0;
};

}  // namespace quillbeam
