#pragma once

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Exchange.h"

namespace quillbeam::service {

/// The JSON requests: begin an upload, get a URL for a part, keep the upload alive, finish it, give it up.
class ApiEndpoints {
 public:
  explicit ApiEndpoints(ServiceWorld& world) : world_(world) {}

  /// After all other routes: what no route takes is answered here too.
  void addTo(httplib::Server& server);

 private:
  /// A request, taken apart.
  struct Call {
    Destination destination;
    UploadIds ids;
    int part = 0;
    nlohmann::json body;
  };
  using Serve = nlohmann::json (ApiEndpoints::*)(const Call& call, const Fault& fault);
  struct Route;
  static const Route routes[];

  httplib::Server::Handler handlerOf(const Route& route);
  void authorize(const httplib::Request& request) const;
  void handleUnknown(const httplib::Request& request, httplib::Response& response);

  nlohmann::json init(const Call& call, const Fault& fault);
  nlohmann::json url(const Call& call, const Fault& fault);
  nlohmann::json pulse(const Call& call, const Fault& fault);
  nlohmann::json finalize(const Call& call, const Fault& fault);
  nlohmann::json abort(const Call& call, const Fault& fault);

  ServiceWorld& world_;
};

}  // namespace quillbeam::service
