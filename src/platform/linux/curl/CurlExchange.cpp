#include "platform/linux/curl/CurlExchange.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

#include "base/Check.h"
#include "platform/linux/curl/CurlErrors.h"

namespace quillbeam {

namespace {

constexpr int uploadBufferSize = 256 * 1024;
/// Longer than that, and something on the way has forgotten the connection.
constexpr long longestConnectionAge = 30;

template <class T>
void set(CURL* easy, CURLoption option, T value) {
  QB_CHECK(curl_easy_setopt(easy, option, value) == CURLE_OK);
}

/// At least one: zero would mean libcurl's own default.
long milliseconds(Duration duration) {
  const auto count = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
  return static_cast<long>(std::clamp<std::int64_t>(count, 1, INT_MAX));
}

/// Servers want to hear of these methods' bodies that there is none.
bool expectsBody(std::string_view method) { return method == "POST" || method == "PUT" || method == "PATCH"; }

CurlExchange& exchange(void* self) { return *static_cast<CurlExchange*>(self); }

}  // namespace

Result<std::unique_ptr<CurlExchange>> CurlExchange::create(HttpRequest request, std::shared_ptr<const BodyFile> file,
                                                           ExchangeLimits limits, Ended ended) {
  TRY_VOID(checkSendable(request));
  return std::unique_ptr<CurlExchange>(new CurlExchange(std::move(request), std::move(file), limits, std::move(ended)));
}

CurlExchange::CurlExchange(HttpRequest request, std::shared_ptr<const BodyFile> file, ExchangeLimits limits,
                           Ended ended)
    : request_(std::move(request)),
      file_(std::move(file)),
      ended_(std::move(ended)),
      headerLines_(headerLinesOf(request_)),
      easy_(curl_easy_init()),
      idleLimit_(limits.idle) {
  QB_CHECK(easy_);
  if (!isTransfer() && !request_.body && expectsBody(request_.method)) request_.body.emplace();
  configureConnection(limits);
  configureRequest();
  configureBody();
  configureCallbacks();
}

void CurlExchange::configureConnection(ExchangeLimits limits) {
  set(easy(), CURLOPT_NOSIGNAL, 1L);
  set(easy(), CURLOPT_QUICK_EXIT, 1L);  // giving up does not wait for a name server
  set(easy(), CURLOPT_PROTOCOLS_STR, "http,https");
  set(easy(), CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  set(easy(), CURLOPT_HTTP09_ALLOWED, 0L);
  set(easy(), CURLOPT_SSL_VERIFYPEER, 1L);
  set(easy(), CURLOPT_SSL_VERIFYHOST, 2L);
  set(easy(), CURLOPT_FOLLOWLOCATION, 0L);
  set(easy(), CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(easy(), CURLOPT_MAXAGE_CONN, longestConnectionAge);
  set(easy(), CURLOPT_SOCKOPTFUNCTION, &CurlExchange::tuneSocket);
  set(easy(), CURLOPT_CONNECTTIMEOUT_MS, milliseconds(limits.idle));
  set(easy(), CURLOPT_TIMEOUT_MS, milliseconds(limits.whole));
}

void CurlExchange::configureRequest() {
  set(easy(), CURLOPT_URL, request_.url.c_str());
  set(easy(), CURLOPT_PATH_AS_IS, 1L);  // addresses are signed as they stand
  set(easy(), CURLOPT_HTTPHEADER, headerLines_.get());
}

void CurlExchange::configureBody() {
  if (isTransfer()) {
    set(easy(), CURLOPT_UPLOAD, 1L);
    set(easy(), CURLOPT_UPLOAD_BUFFERSIZE, long{uploadBufferSize});
    set(easy(), CURLOPT_INFILESIZE_LARGE, curl_off_t{file_->size()});
  } else if (request_.body) {
    set(easy(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body->size()));
    set(easy(), CURLOPT_POSTFIELDS, request_.body->c_str());
  } else if (request_.method == "HEAD") {
    set(easy(), CURLOPT_NOBODY, 1L);
  }
  set(easy(), CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

void CurlExchange::configureCallbacks() {
  set(easy(), CURLOPT_READFUNCTION, &CurlExchange::sendBody);
  set(easy(), CURLOPT_READDATA, this);
  set(easy(), CURLOPT_SEEKFUNCTION, &CurlExchange::seekBody);
  set(easy(), CURLOPT_SEEKDATA, this);
  set(easy(), CURLOPT_HEADERFUNCTION, &CurlExchange::receiveHeadLine);
  set(easy(), CURLOPT_HEADERDATA, this);
  set(easy(), CURLOPT_WRITEFUNCTION, &CurlExchange::receiveBody);
  set(easy(), CURLOPT_WRITEDATA, this);
  set(easy(), CURLOPT_PREREQFUNCTION, &CurlExchange::aboutToRequest);
  set(easy(), CURLOPT_PREREQDATA, this);
}

// ---- what libcurl calls

// Otherwise the kernel takes megabytes at once, and a slow upload looks finished and then stalled. What is on its way
// comes on top of this, so that it does not slow a fast one down.
int CurlExchange::tuneSocket(void*, curl_socket_t socket, curlsocktype) {
  const int mostUnsent = uploadBufferSize;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &mostUnsent, sizeof mostUnsent);
  return CURL_SOCKOPT_OK;
}

std::size_t CurlExchange::sendBody(char* into, std::size_t size, std::size_t count, void* self) {
  CurlExchange& own = exchange(self);
  const auto read = own.file_->read(own.bodyOffset_, {into, size * count});
  if (!read) {
    own.problem_ = read.error();
    return CURL_READFUNC_ABORT;
  }
  own.bodyOffset_ += static_cast<std::int64_t>(*read);
  return *read;
}

int CurlExchange::seekBody(void* self, curl_off_t offset, int origin) {
  if (origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
  exchange(self).bodyOffset_ = offset;
  return CURL_SEEKFUNC_OK;
}

std::size_t CurlExchange::receiveHeadLine(char* line, std::size_t size, std::size_t count, void* self) {
  if (exchange(self).answer_.takeHeadLine({line, size * count})) return size * count;
  exchange(self).problem_ = NetworkError::responseTooLarge;
  return 0;
}

std::size_t CurlExchange::receiveBody(char* bytes, std::size_t size, std::size_t count, void* self) {
  if (exchange(self).answer_.takeBody({bytes, size * count})) return size * count;
  exchange(self).problem_ = NetworkError::responseTooLarge;
  return 0;
}

// libcurl sends a request again by itself when a pooled connection turns out dead. The server may have acted on the
// first one all the same; only for a file's transfer does that not matter.
int CurlExchange::aboutToRequest(void* self, char*, char*, int, int) {
  CurlExchange& own = exchange(self);
  own.lastMove_ = Clock::now();
  if (++own.requestsBegun_ == 1 || own.isTransfer()) return CURL_PREREQFUNC_OK;
  own.problem_ = NetworkError::connectionLost;
  return CURL_PREREQFUNC_ABORT;
}

// ---- progress

std::int64_t CurlExchange::bodyBytesHandedOver() const {
  curl_off_t bytes = 0;
  curl_easy_getinfo(easy(), CURLINFO_SIZE_UPLOAD_T, &bytes);
  return bytes;
}

std::int64_t CurlExchange::bytesSent() {
  mostBytesSent_ = std::max(mostBytesSent_, bodyBytesHandedOver());
  return mostBytesSent_;
}

// libcurl's own low-speed limit averages over five seconds and counts whole ones.
bool CurlExchange::hasStalled() {
  const std::int64_t moved = bodyBytesHandedOver() + answer_.receivedBytes();
  const auto now = Clock::now();
  if (std::exchange(bytesMoved_, moved) != moved) lastMove_ = now;
  return now - lastMove_ >= idleLimit_;
}

void CurlExchange::beginAgain() {
  bodyOffset_ = 0;
  requestsBegun_ = 0;
  answer_ = {};
  problem_.reset();
  lastMove_ = Clock::now();
}

// ---- the outcome

bool CurlExchange::wasSentWhole() const { return !isTransfer() || bodyBytesHandedOver() >= file_->size(); }

CurlExchange::Outcome CurlExchange::outcomeOf(CURLcode code) {
  if (problem_) return *std::move(problem_);
  // An answer that broke off inside its first line is none, either: libcurl keeps that line to itself.
  if (code == CURLE_GOT_NOTHING && wasSentWhole()) return std::optional<HttpResponse>();
  if (code != CURLE_OK) {
    long systemErrorNumber = 0;
    curl_easy_getinfo(easy(), CURLINFO_OS_ERRNO, &systemErrorNumber);
    return networkErrorOf(code, static_cast<int>(systemErrorNumber));
  }
  // For libcurl, a connection that closes among the header lines has answered.
  if (!answer_.hasHead()) return NetworkError::connectionLost;
  return std::optional(std::move(answer_).take());
}

void CurlExchange::end(CURLcode code) { ended_(outcomeOf(code)); }

}  // namespace quillbeam
