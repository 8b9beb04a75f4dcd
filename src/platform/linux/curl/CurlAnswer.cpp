#include "platform/linux/curl/CurlAnswer.h"

#include <algorithm>
#include <charconv>

#include "platform/network/HttpSession.h"

namespace quillbeam {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

bool CurlAnswer::takeHeadLine(std::string_view line) {
  headBytes_ += static_cast<std::int64_t>(line.size());
  if (headBytes_ > largestHead) return false;
  if (hasHead_) return true;
  const bool isEnd = line.find_first_not_of("\r\n") == std::string_view::npos;
  if (!hasStatusLine_) {
    takeStatusLine(line);
  } else if (!isEnd) {
    takeHeader(line);
  } else if (response_.status >= 200) {
    hasHead_ = true;
  } else {
    response_ = {};
    hasStatusLine_ = false;
  }
  return true;
}

void CurlAnswer::takeStatusLine(std::string_view line) {
  hasStatusLine_ = true;
  const auto code = trimmed(line.substr(std::min(line.find(' '), line.size())));
  std::from_chars(code.data(), code.data() + code.size(), response_.status);
}

void CurlAnswer::takeHeader(std::string_view line) {
  const bool continuesTheLast = line.front() == ' ' || line.front() == '\t';
  if (continuesTheLast) {
    if (!response_.headers.empty()) response_.headers.back().value.append(" ").append(trimmed(line));
    return;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  response_.headers.push_back(
      {std::string(trimmed(line.substr(0, colon))), std::string(trimmed(line.substr(colon + 1)))});
}

bool CurlAnswer::takeBody(std::string_view bytes) {
  if (response_.body.size() + bytes.size() > HttpSession::largestAnswer) return false;
  response_.body.append(bytes);
  return true;
}

}  // namespace quillbeam
