#pragma once

#include <cstdint>
#include <string_view>

#include "platform/network/Http.h"

namespace quillbeam {

/// Collects an answer as it arrives, line by line and piece by piece, within bounds.
///
///     status line ──► header lines ──► empty line ──► body
///          ▲───── after an interim (1xx) answer ─────┘
class CurlAnswer {
 public:
  /// Of all header lines together.
  static constexpr std::int64_t largestHead = 256 * 1024;

  /// A line of the head, its end included. False when it is too much. Trailers after the body are left out.
  bool takeHeadLine(std::string_view line);
  /// False when it is too much.
  bool takeBody(std::string_view bytes);

  /// Whether the whole head of a final answer is there.
  bool hasHead() const { return hasHead_; }
  /// Everything that arrived, interim answers included.
  std::int64_t receivedBytes() const { return headBytes_ + static_cast<std::int64_t>(response_.body.size()); }
  HttpResponse take() && { return std::move(response_); }

 private:
  void takeStatusLine(std::string_view line);
  void takeHeader(std::string_view line);

  HttpResponse response_;
  std::int64_t headBytes_ = 0;
  bool hasStatusLine_ = false;
  bool hasHead_ = false;
};

}  // namespace quillbeam
