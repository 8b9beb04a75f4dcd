#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

/// What can go wrong in an exchange with the upload service's API.
enum class MacNativeApiError {
  networkError,   ///< with the transport's error below it
  httpError,      ///< a status that says no; the status is the payload
  decodingError,  ///< JSON, but not what was agreed
  notConfigured,
  invalidUrl,
  tokenExpired,  ///< status 401
  noAuthToken,
};
std::string describe(MacNativeApiError error);
constexpr std::string_view errorDomain(MacNativeApiError) { return "MacNativeApiError"; }

/// The cases whose text carries what happened.
Error networkError(Error underlying);
Error httpError(int status, const std::optional<std::string>& body);
Error decodingError(Error underlying);
/// The service's answer is not what was agreed: domain "MacNativeApiClient", code -1.
Error malformedAnswer(std::string description);

/// The status of an `httpError`; nullopt for other errors.
std::optional<int> httpStatus(const Error& error);

}  // namespace quillbeam
