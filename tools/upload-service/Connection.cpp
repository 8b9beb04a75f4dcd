#include "Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace quillbeam::service {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t bufferSize = 256 * 1024;
/// Clients keep connections for half a minute; they, not the service, should be the ones to close.
constexpr auto longestIdle = 75s;
constexpr auto longestSilenceInRequest = 60s;

}  // namespace

Connection::Connection(int socket, const StopSignal& stop) : socket_(socket), stop_(stop), buffer_(bufferSize) {}

Connection::~Connection() {
  // What was written still arrives; unread bytes make it a reset.
  ::shutdown(socket_, SHUT_RDWR);
  ::close(socket_);
}

bool Connection::awaitRequest() {
  return !isBroken_ && (begin_ < end_ || stop_.awaitReadable(socket_, longestIdle) == StopSignal::Event::readable);
}

void Connection::pause(std::chrono::milliseconds time) {
  if (time > 0ms && stop_.sleep(time) == StopSignal::Event::stopped) breakOff();
}

ssize_t Connection::receive(char* bytes, std::size_t size) {
  while (!isBroken_) {
    const ssize_t received = ::recv(socket_, bytes, size, MSG_DONTWAIT);
    if (received >= 0 || (errno != EAGAIN && errno != EINTR)) return received;
    if (stop_.awaitReadable(socket_, longestSilenceInRequest) != StopSignal::Event::readable) breakOff();
  }
  return -1;
}

ssize_t Connection::read(char* bytes, size_t size) {
  if (isBroken_) return -1;
  if (begin_ == end_) {
    const ssize_t received = receive(buffer_.data(), buffer_.size());
    if (received <= 0) return received;
    begin_ = 0;
    end_ = static_cast<std::size_t>(received);
  }
  const std::size_t taken = std::min(size, end_ - begin_);
  std::memcpy(bytes, buffer_.data() + begin_, taken);
  begin_ += taken;
  return static_cast<ssize_t>(taken);
}

ssize_t Connection::write(const char* bytes, size_t size) {
  std::size_t written = 0;
  while (!isBroken_ && written < size) {
    const ssize_t sent = ::send(socket_, bytes + written, size - written, MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) breakOff();
    if (sent > 0) written += static_cast<std::size_t>(sent);
  }
  return isBroken_ ? -1 : static_cast<ssize_t>(written);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = "127.0.0.1";
  port = 0;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const { get_remote_ip_and_port(ip, port); }

}  // namespace quillbeam::service
