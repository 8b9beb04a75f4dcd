#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

#include "support/TestDirectory.h"

namespace quillbeam {

/// An https server on 127.0.0.1 for two connections, with a certificate for that address that is signed by nobody but
/// itself. A process of its own; it ends after its connections, or when none came for ten seconds.
class TlsServer {
 public:
  TlsServer() {
    std::ofstream(directory_.path() + "/server.py") << program;
    const std::string command = "cd " + directory_.path() +
                                " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                                "-keyout key.pem -out certificate.pem -subj /CN=127.0.0.1 -addext "
                                "subjectAltName=IP:127.0.0.1 2>/dev/null && exec python3 -B server.py";
    process_ = ::popen(command.c_str(), "re");
    EXPECT_EQ(std::fscanf(process_, "%d%*c", &port_), 1) << "no python3, or no openssl?";
  }
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;
  ~TlsServer() { ::pclose(process_); }

  std::string url(std::string_view target) const {
    return "https://127.0.0.1:" + std::to_string(port_) + std::string(target);
  }
  /// How each connection began, in the clear, and what it said under the certificate. Waits for the server's end.
  std::string heard() {
    std::string all;
    for (int byte = 0; (byte = std::fgetc(process_)) != EOF;) all.push_back(static_cast<char>(byte));
    return all;
  }

 private:
  static constexpr const char* program = R"(
import socket, ssl, sys
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain("certificate.pem", "key.pem")
listener = socket.create_server(("127.0.0.1", 0))
listener.settimeout(10)
print(listener.getsockname()[1], flush=True)
for _ in range(2):
    connection, _ = listener.accept()
    connection.settimeout(10)
    sys.stdout.buffer.write(connection.recv(4096, socket.MSG_PEEK))
    try:
        with context.wrap_socket(connection, server_side=True) as tls:
            sys.stdout.buffer.write(tls.recv(4096))
            tls.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")
    except OSError:
        connection.close()
)";
  TestDirectory directory_;
  std::FILE* process_ = nullptr;
  int port_ = 0;
};

}  // namespace quillbeam
