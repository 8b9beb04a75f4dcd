#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "platform/network/Http.h"

namespace quillbeam {

/// Whether the request can be put on the wire as it stands: `NetworkError::unsupportedUrl`, `invalidRequest` (a method
/// or header that would become more than one line, or that is none).
Result<void> checkSendable(const HttpRequest& request);

/// The host in a URL, IPv6 addresses in brackets; empty when it has none.
std::string hostOf(const std::string& url);

struct CurlListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlHeaderLines = std::unique_ptr<curl_slist, CurlListDeleter>;

/// The request's headers as libcurl takes them, and no others that it would add of its own accord. Those that say how
/// long the body is are left to libcurl, which knows.
CurlHeaderLines headerLinesOf(const HttpRequest& request);

}  // namespace quillbeam
