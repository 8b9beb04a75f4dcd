#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace quillbeam {

class Value;

/// An error enumeration: an enum class with `std::string describe(E)` and `std::string_view errorDomain(E)` beside it
/// (found by argument-dependent look-up). The description is one fixed text per case.
template <class E>
concept ErrorEnum = std::is_enum_v<E> && requires(E error) {
  { describe(error) } -> std::convertible_to<std::string>;
  { errorDomain(error) } -> std::convertible_to<std::string_view>;
};

/// What went wrong, as a value: the enumeration it came from (`domain`), which case (`code`), the text a person reads,
/// the error below it when there is one, and facts that go with it (`payload`) but never into the text.
class Error {
 public:
  template <ErrorEnum E>
  Error(E error)  // NOLINT(google-explicit-constructor): `return RecordingError::notRecording;`
      : domain_(errorDomain(error)), code_(static_cast<int>(error)), description_(describe(error)) {}
  Error(std::string_view domain, int code, std::string description)
      : domain_(domain), code_(code), description_(std::move(description)) {}

  const std::string& domain() const { return domain_; }
  int code() const { return code_; }
  const std::string& description() const { return description_; }
  const Error* underlying() const { return underlying_.get(); }
  const Value* payload() const { return payload_.get(); }

  template <ErrorEnum E>
  bool is(E error) const {
    return code_ == static_cast<int>(error) && domain_ == errorDomain(error);
  }

  Error withUnderlying(Error error) &&;
  Error withPayload(Value payload) &&;
  /// The same case with another text, for cases whose text carries the description of what lies below.
  Error withDescription(std::string description) &&;

  /// For the log: the description, then every underlying one.
  std::string fullDescription() const;

 private:
  std::string domain_;
  int code_;
  std::string description_;
  std::shared_ptr<const Error> underlying_;
  std::shared_ptr<const Value> payload_;
};

/// Faults that no room owns.
enum class CommonError { cancelled, invalidArgument, malformedData, unsupported };
std::string describe(CommonError error);
constexpr std::string_view errorDomain(CommonError) { return "CommonError"; }

/// A failed system call: domain "POSIXError", code = errno, text "<doing>: <the system's text>".
Error systemError(std::string_view doing, int errorNumber);
inline constexpr std::string_view posixErrorDomain = "POSIXError";

}  // namespace quillbeam
