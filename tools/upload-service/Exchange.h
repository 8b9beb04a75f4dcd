#pragma once

#include <httplib.h>

#include <functional>
#include <optional>
#include <string>

#include "Connection.h"
#include "Endpoint.h"
#include "FaultRules.h"
#include "Refusal.h"
#include "RequestLog.h"
#include "UploadStore.h"
#include "UrlSigner.h"

namespace quillbeam::service {

/// What all requests are served with.
struct ServiceWorld {
  std::string token;
  std::string baseUrl;
  UploadStore& store;
  const UrlSigner& signer;
  FaultRules& faults;
  RequestLog& log;
};

/// One request and what becomes of it: an answer, a refusal or a closed connection, and its line in the log.
class Exchange {
 public:
  enum class Refusals { json, xml };

  Exchange(ServiceWorld& world, std::optional<Endpoint> endpoint, const httplib::Request& request,
           httplib::Response& response, Refusals refusals);

  /// `serve` calls `answer`, or throws a Refusal or BrokenOff.
  void run(const std::function<void()>& serve);

  void addBytes(std::uint64_t bytes) { line_.bytes += bytes; }
  std::uint64_t bytes() const { return line_.bytes; }
  /// Asks the rules, waits if they say so, throws their refusal. All else of the fault is for the caller.
  const Fault& meetFault(const std::string& fileId, int part);
  /// 200, unless the answer is to be lost.
  void answer(const std::string& body, const std::string& contentType);
  Connection& connection() { return connection_; }

 private:
  void refuse(const Refusal& refusal);
  void setBody(int status, const std::string& body, const std::string& contentType);

  ServiceWorld& world_;
  httplib::Response& response_;
  Refusals refusals_;
  Connection& connection_;
  LoggedRequest line_;
  Fault fault_;
};

}  // namespace quillbeam::service
