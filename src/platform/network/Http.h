#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ByteChain.h"
#include "base/Result.h"
#include "platform/Dispatch.h"

namespace quillbeam {

struct HttpHeader {
  std::string name;
  std::string value;
};

struct HttpRequest {
  std::string method;
  std::string url;
  std::vector<HttpHeader> headers;
  std::optional<std::string> body;
  /// The longest time in which no byte may move. A session's own limit applies when it is shorter.
  Duration timeout = std::chrono::seconds(60);
};

struct HttpResponse {
  int status = 0;
  std::vector<HttpHeader> headers;
  std::string body;

  bool isSuccess() const { return status >= 200 && status <= 299; }
  /// The value of the first header of this name, in whatever letter case; nullptr when there is none.
  const std::string* header(std::string_view name) const;
};

/// Why an exchange gave no answer. Descriptions never hold an address: presigned ones carry a signature.
enum class NetworkError {
  cancelled,
  timedOut,  ///< no byte moved for the idle limit, or the whole exchange took longer than it may
  cannotFindHost,
  cannotConnect,
  connectionLost,  ///< closed or reset before the answer was complete
  notHttp,         ///< something answered, but not with HTTP
  secureConnectionFailed,
  unsupportedUrl,  ///< no scheme, no host, or a scheme other than http and https
  invalidRequest,  ///< a header or method that cannot be sent as it stands
  responseTooLarge,
  bodyUnreadable,  ///< the body's file is missing, unreadable, or became shorter on the way
  other,           ///< the underlying error says what
};
std::string describe(NetworkError error);
constexpr std::string_view errorDomain(NetworkError) { return "NetworkError"; }

/// Whether the text is a URI reference: allowed characters, whole percent escapes. "/path" is one, though no exchange
/// can be made with it (`NetworkError::unsupportedUrl`).
bool isParsableUrl(std::string_view text);

}  // namespace quillbeam
