#pragma once

#include <httplib.h>

#include <string>

#include "Exchange.h"

namespace quillbeam::service {

class IncomingBody;

/// Takes the parts' bytes at their signed URLs, straight to disk.
class StorageEndpoint {
 public:
  explicit StorageEndpoint(ServiceWorld& world) : world_(world) {}

  void addTo(httplib::Server& server);
  /// Where a part is put.
  static std::string path(const UploadIds& ids, int part);

 private:
  void handle(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader);
  void serve(const httplib::Request& request, httplib::Response& response, Exchange& exchange, IncomingBody& body);

  ServiceWorld& world_;
};

}  // namespace quillbeam::service
