#pragma once

#include <memory>

#include "base/Task.h"
#include "platform/network/Http.h"

namespace quillbeam {

/// Small exchanges with a service: bodies in memory, answers of at most `largestAnswer` bytes
/// (`NetworkError::responseTooLarge`). Redirects are answers like any other and never followed, so that no credential
/// reaches another host; certificates are verified; nothing is retried or cached. Any queue.
class HttpSession {
 public:
  static constexpr std::size_t largestAnswer = std::size_t{4} << 20;

  virtual ~HttpSession() = default;
  /// Any HTTP answer is a success, whatever its status; `NetworkError`s otherwise. Destroying the task gives up waiting
  /// for the answer; what the service did stays done.
  virtual Task<HttpResponse> send(HttpRequest request) = 0;
};

struct HttpSessionOptions {
  Duration requestTimeout = std::chrono::seconds(30);   ///< no byte moved for this long
  Duration resourceTimeout = std::chrono::seconds(60);  ///< the whole exchange
};

}  // namespace quillbeam
