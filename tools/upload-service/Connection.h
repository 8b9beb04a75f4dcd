#pragma once

#include <httplib.h>

#include <chrono>
#include <string>
#include <vector>

#include "StopSignal.h"

namespace quillbeam::service {

/// A client's connection: reads in big pieces whatever the library asks for, and can be broken off in the middle of a
/// request. Used by one thread; closes the socket when it goes.
class Connection final : public httplib::Stream {
 public:
  Connection(int socket, const StopSignal& stop);
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// False when the client has gone, was silent for too long, or the service ends.
  bool awaitRequest();
  /// Nothing more is read or written.
  void breakOff() { isBroken_ = true; }
  bool isBroken() const { return isBroken_; }
  /// Leaves what the client sends unread for a while.
  void pause(std::chrono::milliseconds time);

  bool is_readable() const override { return !isBroken_; }
  bool is_writable() const override { return !isBroken_; }
  ssize_t read(char* bytes, size_t size) override;
  ssize_t write(const char* bytes, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return socket_; }

 private:
  ssize_t receive(char* bytes, std::size_t size);

  int socket_;
  const StopSignal& stop_;
  bool isBroken_ = false;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  ///< of what was received and not yet read
  std::size_t end_ = 0;
};

}  // namespace quillbeam::service
