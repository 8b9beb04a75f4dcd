#pragma once

// Included by base/Record.h only: how each kind of member becomes a Value and comes back.

#include <expected>
#include <limits>
#include <type_traits>
#include <utility>

namespace quillbeam::detail {

/// The member (as a path such as "tracks[2].name") that was missing or of another kind.
struct Misfit {
  std::string path;
};

template <class T>
using Fitted = std::expected<T, Misfit>;

inline std::unexpected<Misfit> misfit() { return std::unexpected(Misfit()); }

inline Misfit within(std::string_view outer, Misfit inner) {
  const bool direct = inner.path.empty() || inner.path.starts_with('[');
  return {std::string(outer) + (direct ? "" : ".") + inner.path};
}

template <class E>
concept TextEnum = std::is_enum_v<E> && requires(E value, std::string_view text) {
  { toText(value) } -> std::convertible_to<std::string>;
  { fromText(std::type_identity<E>(), text) } -> std::same_as<std::optional<E>>;
};

template <class T>
struct MemberCodec;

template <>
struct MemberCodec<bool> {
  static Value encode(bool member) { return member; }
  static Fitted<bool> decode(const Value& value) {
    const auto flag = value.asBool();
    return flag ? Fitted<bool>(*flag) : misfit();
  }
};

template <std::integral T>
struct MemberCodec<T> {
  static Value encode(T member) {
    static_assert(sizeof(T) < sizeof(std::int64_t) || std::is_signed_v<T>, "a member of this type may not fit int64");
    if (std::in_range<std::int32_t>(member)) return static_cast<std::int32_t>(member);
    return static_cast<std::int64_t>(member);
  }
  static Fitted<T> decode(const Value& value) {
    const auto number = value.asInteger();
    if (!number || !std::in_range<T>(*number)) return misfit();
    return static_cast<T>(*number);
  }
};

template <>
struct MemberCodec<double> {
  static Value encode(double member) { return member; }
  /// Whole numbers are often written without a point.
  static Fitted<double> decode(const Value& value) {
    if (const auto number = value.asDouble()) return *number;
    const auto whole = value.asInteger();
    return whole ? Fitted<double>(static_cast<double>(*whole)) : misfit();
  }
};

template <>
struct MemberCodec<std::string> {
  static Value encode(const std::string& member) { return member; }
  static Fitted<std::string> decode(const Value& value) {
    const std::string* text = value.asString();
    return text != nullptr ? Fitted<std::string>(*text) : misfit();
  }
};

template <>
struct MemberCodec<Date> {
  static Value encode(Date member) { return iso8601(member); }
  static Fitted<Date> decode(const Value& value) {
    const std::string* text = value.asString();
    if (text == nullptr) return misfit();
    const auto date = parseIso8601(*text);
    return date && iso8601(*date) == *text ? Fitted<Date>(*date) : misfit();
  }
};

template <>
struct MemberCodec<Value> {
  static Value encode(const Value& member) { return member; }
  static Fitted<Value> decode(const Value& value) { return value; }
};

template <TextEnum E>
struct MemberCodec<E> {
  static Value encode(E member) { return std::string(toText(member)); }
  static Fitted<E> decode(const Value& value) {
    const std::string* text = value.asString();
    if (text == nullptr) return misfit();
    const std::optional<E> member = fromText(std::type_identity<E>(), *text);
    return member ? Fitted<E>(*member) : misfit();
  }
};

template <class T>
struct MemberCodec<std::vector<T>> {
  static Value encode(const std::vector<T>& members) {
    ValueList list;
    list.reserve(members.size());
    for (const T& member : members) list.push_back(MemberCodec<T>::encode(member));
    return list;
  }
  static Fitted<std::vector<T>> decode(const Value& value) {
    const ValueList* list = value.asList();
    if (list == nullptr) return misfit();
    std::vector<T> members;
    members.reserve(list->size());
    for (const Value& item : *list) {
      auto member = MemberCodec<T>::decode(item);
      if (!member) {
        return std::unexpected(within("[" + std::to_string(members.size()) + "]", std::move(member).error()));
      }
      members.push_back(*std::move(member));
    }
    return members;
  }
};

template <RecordType Record>
struct MemberCodec<Record> {
  static Value encode(const Record& record) {
    ValueMap map;
    std::apply([&](const auto&... fields) { (add(map, fields.name, record.*fields.member), ...); }, Record::fields());
    return map;
  }
  static Fitted<Record> decode(const Value& value) {
    const ValueMap* map = value.asMap();
    if (map == nullptr) return misfit();
    Record record{};
    std::optional<Misfit> fault;
    std::apply([&](const auto&... fields) { (take(*map, fields.name, record.*fields.member, fault) && ...); },
               Record::fields());
    if (fault) return std::unexpected(*std::move(fault));
    return record;
  }

 private:
  template <class T>
  static void add(ValueMap& map, std::string_view name, const T& member) {
    map.append(name, MemberCodec<T>::encode(member));
  }
  template <class T>
  static void add(ValueMap& map, std::string_view name, const std::optional<T>& member) {
    if (member) add(map, name, *member);
  }
  template <class T>
  static bool take(const ValueMap& map, std::string_view name, T& member, std::optional<Misfit>& fault) {
    const Value* value = map.find(name);
    auto decoded = value != nullptr ? MemberCodec<T>::decode(*value) : Fitted<T>(misfit());
    if (decoded) {
      member = *std::move(decoded);
    } else {
      fault = within(name, std::move(decoded).error());
    }
    return !fault;
  }
  template <class T>
  static bool take(const ValueMap& map, std::string_view name, std::optional<T>& member, std::optional<Misfit>& fault) {
    const Value* value = map.find(name);
    return value == nullptr || value->isNil() || take(map, name, member.emplace(), fault);
  }
};

}  // namespace quillbeam::detail

namespace quillbeam {

template <RecordType Record>
Value toValue(const Record& record) {
  return detail::MemberCodec<Record>::encode(record);
}

template <RecordType Record>
Result<Record> fromValue(const Value& value) {
  auto record = detail::MemberCodec<Record>::decode(value);
  if (record) return *std::move(record);
  const std::string& path = record.error().path;
  const std::string description = path.empty()
                                      ? "The data is malformed: not a record"
                                      : "The data is malformed: member \"" + path + "\" is missing or mistyped";
  return Error(CommonError::malformedData).withDescription(description);
}

}  // namespace quillbeam
