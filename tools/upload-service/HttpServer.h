#pragma once

#include <httplib.h>

#include <optional>

#include "Connection.h"
#include "StopSignal.h"

namespace quillbeam::service {

/// The library's server on the loopback interface, with connections of our own.
class HttpServer final : public httplib::Server {
 public:
  HttpServer();

  /// The port, an unused one for 0; nothing when it is taken. Connections are accepted from here on.
  std::optional<int> bind(int port);
  /// Serves until `end`, which may come from any thread once `is_running`. Requests under way are broken off.
  void serve() { listen_after_bind(); }
  void end();

  /// Of the request that the calling thread handles.
  static Connection& currentConnection();

 private:
  bool process_and_close_socket(socket_t socket) override;

  StopSignal stop_;
};

}  // namespace quillbeam::service
