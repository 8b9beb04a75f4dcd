#include "platform/network/Http.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace quillbeam {

namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

bool isHexDigit(char character) { return std::isxdigit(static_cast<unsigned char>(character)) != 0; }

bool isUrlCharacter(char character) {
  constexpr std::string_view punctuation = "-._~:/?#[]@!$&'()*+,;=";
  const bool isAscii = static_cast<unsigned char>(character) < 0x80;
  return isAscii && (std::isalnum(static_cast<unsigned char>(character)) != 0 || punctuation.contains(character));
}

}  // namespace

const std::string* HttpResponse::header(std::string_view name) const {
  const auto found =
      std::ranges::find_if(headers, [&](const HttpHeader& header) { return equalIgnoringCase(header.name, name); });
  return found == headers.end() ? nullptr : &found->value;
}

std::string describe(NetworkError error) {
  switch (error) {
    case NetworkError::cancelled:
      return "The transfer was cancelled";
    case NetworkError::timedOut:
      return "The request timed out";
    case NetworkError::cannotFindHost:
      return "The server's name could not be found";
    case NetworkError::cannotConnect:
      return "Could not connect to the server";
    case NetworkError::connectionLost:
      return "The network connection was lost";
    case NetworkError::notHttp:
      return "The answer was not HTTP";
    case NetworkError::secureConnectionFailed:
      return "A secure connection to the server could not be made";
    case NetworkError::unsupportedUrl:
      return "Unsupported URL";
    case NetworkError::invalidRequest:
      return "The request cannot be sent as it stands";
    case NetworkError::responseTooLarge:
      return "The answer is too large";
    case NetworkError::bodyUnreadable:
      return "The file to send cannot be read";
    case NetworkError::other:
      return "The exchange with the server failed";
  }
  std::unreachable();
}

bool isParsableUrl(std::string_view text) {
  if (text.empty()) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '%') {
      if (at + 2 >= text.size() || !isHexDigit(text[at + 1]) || !isHexDigit(text[at + 2])) return false;
      at += 2;
    } else if (!isUrlCharacter(text[at])) {
      return false;
    }
  }
  return true;
}

}  // namespace quillbeam
