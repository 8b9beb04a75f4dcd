#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "DiskFiles.h"
#include "Endpoint.h"

namespace quillbeam::service {

/// What the log keeps of a request. Never a token, never a query.
struct LoggedRequest {
  std::chrono::system_clock::time_point time = std::chrono::system_clock::now();
  std::string method;
  std::string path;
  std::optional<Endpoint> endpoint;
  int part = 0;               ///< 0: none
  std::uint64_t bytes = 0;    ///< of the request's body
  std::optional<int> status;  ///< none: the connection was closed without an answer
  std::string fault;          ///< empty: none
};

/// A JSON line per request, written before the client can see the answer. For use by several threads.
class RequestLog {
 public:
  explicit RequestLog(const std::filesystem::path& path) : file_(path, O_WRONLY | O_CREAT | O_APPEND) {}

  void add(const LoggedRequest& request);

 private:
  std::mutex mutex_;
  OpenFile file_;
};

}  // namespace quillbeam::service
