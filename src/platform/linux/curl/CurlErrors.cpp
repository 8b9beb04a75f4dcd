#include "platform/linux/curl/CurlErrors.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

constexpr std::pair<CURLcode, NetworkError> meanings[] = {
    {CURLE_COULDNT_RESOLVE_HOST, NetworkError::cannotFindHost},
    {CURLE_COULDNT_RESOLVE_PROXY, NetworkError::cannotFindHost},
    {CURLE_COULDNT_CONNECT, NetworkError::cannotConnect},
    {CURLE_PROXY, NetworkError::cannotConnect},
    {CURLE_OPERATION_TIMEDOUT, NetworkError::timedOut},
    {CURLE_GOT_NOTHING, NetworkError::connectionLost},
    {CURLE_SEND_ERROR, NetworkError::connectionLost},
    {CURLE_RECV_ERROR, NetworkError::connectionLost},
    {CURLE_PARTIAL_FILE, NetworkError::connectionLost},
    {CURLE_WEIRD_SERVER_REPLY, NetworkError::notHttp},
    // The request's scheme was checked before: what is left is an answer from before HTTP/1.0, that is, anything.
    {CURLE_UNSUPPORTED_PROTOCOL, NetworkError::notHttp},
    {CURLE_URL_MALFORMAT, NetworkError::unsupportedUrl},
    {CURLE_SSL_CONNECT_ERROR, NetworkError::secureConnectionFailed},
    {CURLE_PEER_FAILED_VERIFICATION, NetworkError::secureConnectionFailed},
    {CURLE_SSL_CERTPROBLEM, NetworkError::secureConnectionFailed},
    {CURLE_SSL_CLIENTCERT, NetworkError::secureConnectionFailed},
    {CURLE_SSL_CIPHER, NetworkError::secureConnectionFailed},
    {CURLE_SSL_CACERT_BADFILE, NetworkError::secureConnectionFailed},
    {CURLE_SSL_CRL_BADFILE, NetworkError::secureConnectionFailed},
    {CURLE_SSL_ISSUER_ERROR, NetworkError::secureConnectionFailed},
    {CURLE_SSL_INVALIDCERTSTATUS, NetworkError::secureConnectionFailed},
};

}  // namespace

Error networkErrorOf(CURLcode code, int systemErrorNumber) {
  const auto* meaning = std::ranges::find(meanings, code, &std::pair<CURLcode, NetworkError>::first);
  const auto error = meaning == std::end(meanings) ? NetworkError::other : meaning->second;
  Error below("CURLcode", code, curl_easy_strerror(code));
  if (code == CURLE_COULDNT_CONNECT && systemErrorNumber != 0) {
    below = std::move(below).withUnderlying(systemError("connect", systemErrorNumber));
  }
  return Error(error).withUnderlying(std::move(below));
}

}  // namespace quillbeam
