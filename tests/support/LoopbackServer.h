#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/network/Http.h"

namespace quillbeam {

/// One request on a connection, of which only the head has been read. For the handler, on the connection's thread.
class LoopbackExchange {
 public:
  LoopbackExchange(int socket, std::string& unread) : socket_(socket), unread_(unread) {}

  std::string method;
  std::string target;
  std::vector<HttpHeader> headers;

  std::string headerValue(std::string_view name) const {
    const HttpResponse lookup{.headers = headers};
    const std::string* value = lookup.header(name);
    return value == nullptr ? std::string() : *value;
  }
  /// What its Content-Length says; less when the client goes before.
  std::string readBody() {
    const std::string length = headerValue("Content-Length");
    const std::size_t size = length.empty() ? 0 : std::stoul(length);
    while (unread_.size() < size && receive()) {
    }
    return take(std::min(size, unread_.size()));
  }
  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }
  void answer(const HttpResponse& response) { send(textOf(response)); }
  static std::string textOf(const HttpResponse& response) {
    std::string text = "HTTP/1.1 " + std::to_string(response.status) + " Whatever\r\n";
    for (const HttpHeader& header : response.headers) text += header.name + ": " + header.value + "\r\n";
    return text + "Content-Length: " + std::to_string(response.body.size()) + "\r\n\r\n" + response.body;
  }
  /// Lets time pass, less when the client goes or the server stops. Nothing is read meanwhile.
  void pause(std::chrono::nanoseconds duration) const {
    pollfd end{.fd = socket_, .events = POLLRDHUP, .revents = 0};
    ::poll(&end, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(duration).count()));
  }
  void waitForTheEnd() const { pause(std::chrono::hours(1)); }

  // For the server.

  bool readHead() {
    std::size_t end = 0;
    while ((end = unread_.find("\r\n\r\n")) == std::string::npos) {
      if (!receive()) return false;
    }
    std::string head = take(end + 2);
    take(2);
    method = head.substr(0, head.find(' '));
    target = head.substr(method.size() + 1, head.find(' ', method.size() + 1) - method.size() - 1);
    for (std::size_t at = head.find("\r\n") + 2; at < head.size(); at = head.find("\r\n", at) + 2) {
      const std::size_t colon = head.find(':', at);
      const std::size_t value = head.find_first_not_of(' ', colon + 1);
      headers.push_back({head.substr(at, colon - at), head.substr(value, head.find("\r\n", at) - value)});
    }
    return true;
  }

 private:
  bool receive() {
    char buffer[64 * 1024];
    const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
    if (count > 0) unread_.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  }
  std::string take(std::size_t count) {
    std::string taken = unread_.substr(0, count);
    unread_.erase(0, count);
    return taken;
  }

  int socket_;
  std::string& unread_;
};

/// A server on 127.0.0.1 and a port of the system's choice, with a thread per connection.
class LoopbackServer {
 public:
  enum class Then { keepOpen, close };
  using Handler = std::function<Then(LoopbackExchange&)>;

  explicit LoopbackServer(Handler handler) : handler_(std::move(handler)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(listener_, 64), 0);
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() { stop(); }

  std::string url(std::string_view target) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(target);
  }
  int connectionCount() const { return connectionCount_; }
  /// Ends every connection; nothing listens on the port any more.
  void stop() {
    if (!acceptor_.joinable()) return;
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    ::close(listener_);
    {
      const std::lock_guard lock(mutex_);
      for (const int socket : open_) ::shutdown(socket, SHUT_RDWR);
    }
    for (std::thread& connection : connections_) connection.join();
    connections_.clear();
  }

 private:
  void accept() {
    while (true) {
      const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (socket < 0) return;
      ++connectionCount_;
      {
        const std::lock_guard lock(mutex_);
        open_.push_back(socket);
      }
      connections_.emplace_back([this, socket] { serve(socket); });
    }
  }
  void serve(int socket) {
    std::string unread;
    while (true) {
      LoopbackExchange exchange(socket, unread);
      if (!exchange.readHead() || handler_(exchange) == Then::close) break;
    }
    const std::lock_guard lock(mutex_);
    std::erase(open_, socket);
    ::close(socket);
  }

  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> connectionCount_ = 0;
  std::mutex mutex_;
  std::vector<int> open_;  // guarded by the mutex
  std::vector<std::thread> connections_;
  std::thread acceptor_;
};

}  // namespace quillbeam
