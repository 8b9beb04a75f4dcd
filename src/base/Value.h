#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace quillbeam {

class Value;

using ValueList = std::vector<Value>;

/// A map in insertion order. Keys are usually strings; the wire format allows any value, so nothing is lost on the way.
class ValueMap {
 public:
  using Entry = std::pair<Value, Value>;

  ValueMap();
  ValueMap(std::initializer_list<std::pair<std::string_view, Value>> entries);
  ValueMap(const ValueMap&);
  ValueMap(ValueMap&&) noexcept;
  ValueMap& operator=(const ValueMap&);
  ValueMap& operator=(ValueMap&&) noexcept;
  ~ValueMap();

  /// Adds the entry, or replaces the value of the one with an equal key in its place.
  void set(Value key, Value value);
  /// Adds without looking for an equal key: for decoders, which look for duplicates once, at the end.
  void append(Value key, Value value);
  /// nullptr when there is no entry with this string key.
  const Value* find(std::string_view key) const;
  /// Whether two entries have the same string key.
  bool hasRepeatedKeys() const;

  std::size_t size() const;
  const Entry* begin() const;
  const Entry* end() const;
  /// Equal when they hold equal entries, in whatever order.
  friend bool operator==(const ValueMap& a, const ValueMap& b);

 private:
  std::vector<Entry> entries_;
};

/// One dynamic value: what channels carry, what notifications and configuration maps hold. The alternatives are those
/// of the standard message codec. Not-set and null are the same: nil.
class Value {
 public:
  using Bytes = std::vector<std::uint8_t>;
  using Ints32 = std::vector<std::int32_t>;
  using Ints64 = std::vector<std::int64_t>;
  using Floats32 = std::vector<float>;
  using Floats64 = std::vector<double>;
  using Variant = std::variant<std::monostate, bool, std::int32_t, std::int64_t, double, std::string, Bytes, Ints32,
                               Ints64, Floats32, Floats64, ValueList, ValueMap>;

  Value() = default;
  Value(std::nullptr_t) {}                                    // NOLINT(google-explicit-constructor): literals of all
  Value(bool value) : variant_(value) {}                      // NOLINT: these kinds are written in maps and lists.
  Value(std::int32_t value) : variant_(value) {}              // NOLINT
  Value(std::int64_t value) : variant_(value) {}              // NOLINT
  Value(double value) : variant_(value) {}                    // NOLINT
  Value(const char* value) : variant_(std::string(value)) {}  // NOLINT
  template <class T>
  Value(T*) = delete;                                              // or a pointer would quietly become true
  Value(std::string_view value) : variant_(std::string(value)) {}  // NOLINT
  Value(std::string value) : variant_(std::move(value)) {}         // NOLINT
  Value(Bytes value) : variant_(std::move(value)) {}               // NOLINT
  Value(Ints32 value) : variant_(std::move(value)) {}              // NOLINT
  Value(Ints64 value) : variant_(std::move(value)) {}              // NOLINT
  Value(Floats32 value) : variant_(std::move(value)) {}            // NOLINT
  Value(Floats64 value) : variant_(std::move(value)) {}            // NOLINT
  Value(ValueList value) : variant_(std::move(value)) {}           // NOLINT
  Value(ValueMap value) : variant_(std::move(value)) {}            // NOLINT
  template <class T>
  Value(const std::optional<T>& value) {  // NOLINT
    if (value) *this = Value(*value);
  }

  bool isNil() const { return std::holds_alternative<std::monostate>(variant_); }
  /// nullptr when the value is of another kind.
  template <class T>
  const T* as() const {
    return std::get_if<T>(&variant_);
  }
  std::optional<bool> asBool() const;
  /// Both integer widths.
  std::optional<std::int64_t> asInteger() const;
  std::optional<double> asDouble() const;
  const std::string* asString() const { return as<std::string>(); }
  const ValueMap* asMap() const { return as<ValueMap>(); }
  const ValueList* asList() const { return as<ValueList>(); }
  /// `(*value)["key"]`-style look-up: nil when this is no map or has no such key.
  const Value& at(std::string_view key) const;

  const Variant& variant() const { return variant_; }
  friend bool operator==(const Value& a, const Value& b) { return a.variant_ == b.variant_; }

 private:
  Variant variant_;
};

}  // namespace quillbeam
