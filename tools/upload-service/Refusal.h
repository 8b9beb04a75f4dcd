#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace quillbeam::service {

/// Thrown by whatever finds that a request must not be granted; becomes the answer.
class Refusal : public std::runtime_error {
 public:
  Refusal(int status, std::string code, const std::string& message)
      : std::runtime_error(message), status_(status), code_(std::move(code)) {}

  int status() const { return status_; }
  /// One word for programs: "NoSuchUpload", "EntityTooSmall", …
  const std::string& code() const { return code_; }

 private:
  int status_;
  std::string code_;
};

/// Thrown when a request ends without an answer: the connection is closed.
struct BrokenOff {};

}  // namespace quillbeam::service
