#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/linux/curl/BodyFile.h"
#include "platform/linux/curl/CurlAnswer.h"
#include "platform/linux/curl/CurlRequest.h"

namespace quillbeam {

struct ExchangeLimits {
  Duration idle;   ///< no byte moved for this long
  Duration whole;  ///< everything, from the start on
};

/// One request and its answer, as an easy handle that a `CurlWorker` drives; on the worker's thread only. With a file
/// as its body it is a transfer, which may be sent again when it can have had no effect yet or when all connections
/// died. Without one it reaches the server once at most.
class CurlExchange {
 public:
  /// An answer; nothing, in order (the connection was closed after the whole request without a word); a `NetworkError`.
  using Outcome = Result<std::optional<HttpResponse>>;
  using Ended = std::move_only_function<void(Outcome)>;

  /// `NetworkError::unsupportedUrl`, `invalidRequest`: nothing may be sent. `file` may be nullptr.
  static Result<std::unique_ptr<CurlExchange>> create(HttpRequest request, std::shared_ptr<const BodyFile> file,
                                                      ExchangeLimits limits, Ended ended);
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;

  bool isTransfer() const { return file_ != nullptr; }
  /// Body bytes that are on their way or close to it; never shrinks.
  std::int64_t bytesSent();

  // For the worker.

  CURL* easy() const { return easy_.get(); }
  /// Whether no byte has moved for the idle limit; to be asked about once a second.
  bool hasStalled();
  /// Forgets what was sent and received.
  void beginAgain();
  /// Tells the owner what came of it; the last call.
  void end(CURLcode code);
  void fail(NetworkError error) { ended_(error); }

 private:
  using Clock = std::chrono::steady_clock;
  struct EasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };

  CurlExchange(HttpRequest request, std::shared_ptr<const BodyFile> file, ExchangeLimits limits, Ended ended);
  void configureConnection(ExchangeLimits limits);
  void configureRequest();
  void configureBody();
  void configureCallbacks();

  static int tuneSocket(void*, curl_socket_t socket, curlsocktype purpose);
  static std::size_t sendBody(char* into, std::size_t size, std::size_t count, void* self);
  static int seekBody(void* self, curl_off_t offset, int origin);
  static std::size_t receiveHeadLine(char* line, std::size_t size, std::size_t count, void* self);
  static std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static int aboutToRequest(void* self, char*, char*, int, int);

  Outcome outcomeOf(CURLcode code);
  bool wasSentWhole() const;
  std::int64_t bodyBytesHandedOver() const;

  HttpRequest request_;
  std::shared_ptr<const BodyFile> file_;
  Ended ended_;
  CurlHeaderLines headerLines_;
  std::unique_ptr<CURL, EasyDeleter> easy_;

  std::int64_t bodyOffset_ = 0;
  int requestsBegun_ = 0;
  CurlAnswer answer_;
  std::optional<Error> problem_;  // found by a callback of ours: says more than libcurl's code

  const Duration idleLimit_;
  std::int64_t mostBytesSent_ = 0;
  std::int64_t bytesMoved_ = 0;
  Clock::time_point lastMove_ = Clock::now();
};

}  // namespace quillbeam
