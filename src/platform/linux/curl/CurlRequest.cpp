#include "platform/linux/curl/CurlRequest.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "base/Check.h"

namespace quillbeam {

namespace {

struct CurlUrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using CurlUrl = std::unique_ptr<CURLU, CurlUrlDeleter>;

CurlUrl parsed(const std::string& text) {
  CurlUrl url(curl_url());
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) url.reset();
  return url;
}

std::string partOf(const CurlUrl& url, CURLUPart part) {
  char* text = nullptr;
  if (!url || curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
  std::string copy(text);
  curl_free(text);
  return copy;
}

bool isSupportedUrl(const std::string& text) {
  const CurlUrl url = text.contains('\0') ? nullptr : parsed(text);
  const std::string scheme = partOf(url, CURLUPART_SCHEME);
  return (scheme == "http" || scheme == "https") && !partOf(url, CURLUPART_HOST).empty();
}

bool isToken(std::string_view text) {
  constexpr std::string_view punctuation = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::ranges::all_of(text, [&](unsigned char character) {
    return (character < 0x80 && std::isalnum(character) != 0) || punctuation.contains(static_cast<char>(character));
  });
}

bool isSendable(const HttpHeader& header) {
  using namespace std::string_view_literals;
  return isToken(header.name) && header.value.find_first_of("\r\n\0"sv) == std::string::npos;
}

bool isNamed(const HttpHeader& header, const char* name) { return ::strcasecmp(header.name.c_str(), name) == 0; }

bool isOursToSay(const HttpHeader& header) {
  constexpr std::array names = {"Content-Length", "Transfer-Encoding", "Expect"};
  return std::ranges::any_of(names, [&](const char* name) { return isNamed(header, name); });
}

/// libcurl takes "Name:" as a wish to leave the header out, and "Name;" as one without a value.
std::string lineOf(const HttpHeader& header) {
  const bool isBlank = header.value.find_first_not_of(" \t") == std::string::npos;
  return isBlank ? header.name + ";" : header.name + ": " + header.value;
}

}  // namespace

Result<void> checkSendable(const HttpRequest& request) {
  if (!isSupportedUrl(request.url)) return NetworkError::unsupportedUrl;
  if (!isToken(request.method) || !std::ranges::all_of(request.headers, isSendable)) {
    return NetworkError::invalidRequest;
  }
  return success;
}

std::string hostOf(const std::string& url) { return partOf(parsed(url), CURLUPART_HOST); }

CurlHeaderLines headerLinesOf(const HttpRequest& request) {
  CurlHeaderLines lines;
  const auto add = [&](const std::string& line) {
    lines.reset(curl_slist_append(lines.release(), line.c_str()));
    QB_CHECK(lines);
  };
  for (const HttpHeader& header : request.headers) {
    if (!isOursToSay(header)) add(lineOf(header));
  }
  add("Expect:");
  const auto isContentType = [](const HttpHeader& header) { return isNamed(header, "Content-Type"); };
  if (std::ranges::none_of(request.headers, isContentType)) add("Content-Type:");
  return lines;
}

}  // namespace quillbeam
