#include "base/Error.h"

#include <system_error>

#include "base/Value.h"

namespace quillbeam {

Error Error::withUnderlying(Error error) && {
  underlying_ = std::make_shared<const Error>(std::move(error));
  return std::move(*this);
}

Error Error::withPayload(Value payload) && {
  payload_ = std::make_shared<const Value>(std::move(payload));
  return std::move(*this);
}

Error Error::withDescription(std::string description) && {
  description_ = std::move(description);
  return std::move(*this);
}

std::string Error::fullDescription() const {
  std::string text = description_;
  for (const Error* below = underlying(); below != nullptr; below = below->underlying()) {
    text += ": " + below->description();
  }
  return text;
}

std::string describe(CommonError error) {
  switch (error) {
    case CommonError::cancelled:
      return "The operation was cancelled";
    case CommonError::invalidArgument:
      return "An argument is not acceptable";
    case CommonError::malformedData:
      return "The data is malformed";
    case CommonError::unsupported:
      return "The operation is not supported here";
  }
  std::unreachable();
}

Error systemError(std::string_view doing, int errorNumber) {
  return Error(posixErrorDomain, errorNumber, std::string(doing) + ": " + std::generic_category().message(errorNumber));
}

}  // namespace quillbeam
