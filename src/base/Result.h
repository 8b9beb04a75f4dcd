#pragma once

#include <expected>
#include <utility>

#include "base/Error.h"

namespace quillbeam {

/// A value or an `Error`. Functions return either side plainly: `return value;` or `return SomeError::someCase;`.
template <class T>
class [[nodiscard]] Result : public std::expected<T, Error> {
 public:
  using std::expected<T, Error>::expected;
  Result(Error error) : std::expected<T, Error>(std::unexpect, std::move(error)) {}  // NOLINT
  template <ErrorEnum E>
    requires(!std::is_same_v<T, E>)
  Result(E error) : Result(Error(error)) {}  // NOLINT
};

template <>
class [[nodiscard]] Result<void> : public std::expected<void, Error> {
 public:
  using std::expected<void, Error>::expected;
  Result(Error error) : std::expected<void, Error>(std::unexpect, std::move(error)) {}  // NOLINT
  template <ErrorEnum E>
  Result(E error) : Result(Error(error)) {}  // NOLINT
};

/// What a void operation returns when it went well: `return success;`, `co_return success;`.
inline const Result<void> success{};

#define QB_CONCAT_(a, b) a##b
#define QB_CONCAT(a, b) QB_CONCAT_(a, b)
#define QB_TRY_(leave, temporary, declaration, ...)   \
  auto temporary = __VA_ARGS__;                       \
  if (!temporary) leave std::move(temporary).error(); \
  declaration = *std::move(temporary)
#define QB_CHECKED_(leave, ...)                       \
  do {                                                \
    auto qbResult = __VA_ARGS__;                      \
    if (!qbResult) leave std::move(qbResult).error(); \
  } while (false)

/// `TRY(auto file, openFile(path));` — the value, or an early return with the error.
#define TRY(declaration, ...) QB_TRY_(return, QB_CONCAT(qbTry, __LINE__), declaration, __VA_ARGS__)
#define TRY_VOID(...) QB_CHECKED_(return, __VA_ARGS__)
/// The same inside a coroutine: `CO_TRY(auto session, co_await startSession(recording));`
#define CO_TRY(declaration, ...) QB_TRY_(co_return, QB_CONCAT(qbTry, __LINE__), declaration, __VA_ARGS__)
#define CO_TRY_VOID(...) QB_CHECKED_(co_return, __VA_ARGS__)

}  // namespace quillbeam
