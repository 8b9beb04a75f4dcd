#include "upload/MacNativeApiError.h"

#include <utility>

#include "base/Value.h"

namespace quillbeam {

namespace {

Error wrapping(MacNativeApiError error, Error underlying) {
  std::string description = describe(error) + ": " + underlying.description();
  return Error(error).withDescription(std::move(description)).withUnderlying(std::move(underlying));
}

}  // namespace

std::string describe(MacNativeApiError error) {
  switch (error) {
    case MacNativeApiError::networkError:
      return "Network error";
    case MacNativeApiError::httpError:
      return "HTTP";
    case MacNativeApiError::decodingError:
      return "Decoding error";
    case MacNativeApiError::notConfigured:
      return "API client not configured";
    case MacNativeApiError::invalidUrl:
      return "Invalid URL";
    case MacNativeApiError::tokenExpired:
      return "Authentication token expired";
    case MacNativeApiError::noAuthToken:
      return "No authentication token available";
  }
  std::unreachable();
}

Error networkError(Error underlying) { return wrapping(MacNativeApiError::networkError, std::move(underlying)); }

Error decodingError(Error underlying) { return wrapping(MacNativeApiError::decodingError, std::move(underlying)); }

Error httpError(int status, const std::optional<std::string>& body) {
  return Error(MacNativeApiError::httpError)
      .withDescription(describe(MacNativeApiError::httpError) + " " + std::to_string(status) + ": " +
                       body.value_or("Unknown error"))
      .withPayload(status);
}

Error malformedAnswer(std::string description) { return {"MacNativeApiClient", -1, std::move(description)}; }

std::optional<int> httpStatus(const Error& error) {
  if (!error.is(MacNativeApiError::httpError) || error.payload() == nullptr) return std::nullopt;
  return static_cast<int>(error.payload()->asInteger().value_or(0));
}

}  // namespace quillbeam
