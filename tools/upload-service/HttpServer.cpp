#include "HttpServer.h"

#include <sys/socket.h>

namespace quillbeam::service {

namespace {

constexpr std::size_t threads = 64;  // each connection holds one while it lives
constexpr int backlog = 128;
/// Small enough that a client notices when the service stops reading, instead of filling the kernel's buffers.
constexpr int receiveBuffer = 256 * 1024;
constexpr std::size_t longestBody = std::size_t{5} << 30;

thread_local Connection* servedConnection = nullptr;

/// A request that announces no body has none. The library would wait for one until the connection's end.
void settleBodyLength(httplib::Request& request) {
  if (request.has_header("Content-Length") || request.has_header("Transfer-Encoding")) return;
  request.set_header("Content-Length", "0");
}

}  // namespace

HttpServer::HttpServer() {
  new_task_queue = [] { return new httplib::ThreadPool(threads); };
  set_keep_alive_max_count(1'000'000);
  set_keep_alive_timeout(75);
  set_write_timeout(30);
  set_tcp_nodelay(true);
  set_payload_max_length(longestBody);
  // Not the library's SO_REUSEPORT, with which two services share a port and the requests between them.
  set_socket_options([](socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
  });
}

std::optional<int> HttpServer::bind(int port) {
  const std::string host = "127.0.0.1";
  if (port == 0) {
    port = bind_to_any_port(host);
    if (port <= 0) return std::nullopt;
  } else if (!bind_to_port(host, port)) {
    return std::nullopt;
  }
  ::listen(svr_sock_, backlog);  // again: the library's five are few for clients that connect all at once
  return port;
}

void HttpServer::end() {
  stop_.raise();
  stop();
}

Connection& HttpServer::currentConnection() { return *servedConnection; }

bool HttpServer::process_and_close_socket(socket_t socket) {
  Connection connection(socket, stop_);
  servedConnection = &connection;
  bool clientCloses = false;
  while (!clientCloses && connection.awaitRequest()) {
    if (!process_request(connection, false, clientCloses, settleBodyLength)) break;
  }
  servedConnection = nullptr;
  return true;
}

}  // namespace quillbeam::service
