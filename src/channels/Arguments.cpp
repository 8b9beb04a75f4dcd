#include "channels/Arguments.h"

namespace quillbeam {

namespace {

template <class T>
std::optional<T> copied(const T* value) {
  return value == nullptr ? std::nullopt : std::optional<T>(*value);
}

}  // namespace

std::optional<std::string> Arguments::string(std::string_view key) const {
  return copied(arguments_.at(key).asString());
}

std::optional<double> Arguments::number(std::string_view key) const {
  const Value& value = arguments_.at(key);
  if (const auto whole = value.asInteger()) return static_cast<double>(*whole);
  return value.asDouble();
}

std::optional<ValueMap> Arguments::map(std::string_view key) const { return copied(arguments_.at(key).asMap()); }

std::optional<ValueList> Arguments::list(std::string_view key) const { return copied(arguments_.at(key).asList()); }

}  // namespace quillbeam
