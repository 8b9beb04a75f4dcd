#include "base/Value.h"

#include <algorithm>

namespace quillbeam {

namespace {

template <class T>
std::optional<T> copied(const T* value) {
  return value == nullptr ? std::nullopt : std::optional<T>(*value);
}

}  // namespace

ValueMap::ValueMap() = default;
ValueMap::ValueMap(const ValueMap&) = default;
ValueMap::ValueMap(ValueMap&&) noexcept = default;
ValueMap& ValueMap::operator=(const ValueMap&) = default;
ValueMap& ValueMap::operator=(ValueMap&&) noexcept = default;
ValueMap::~ValueMap() = default;

ValueMap::ValueMap(std::initializer_list<std::pair<std::string_view, Value>> entries) {
  for (const auto& [key, value] : entries) append(Value(key), value);
}

void ValueMap::set(Value key, Value value) {
  const auto entry = std::ranges::find(entries_, key, &Entry::first);
  if (entry == entries_.end()) return append(std::move(key), std::move(value));
  entry->second = std::move(value);
}

void ValueMap::append(Value key, Value value) { entries_.emplace_back(std::move(key), std::move(value)); }

const Value* ValueMap::find(std::string_view key) const {
  const auto entry = std::ranges::find_if(entries_, [&](const Entry& candidate) {
    const std::string* name = candidate.first.asString();
    return name != nullptr && *name == key;
  });
  return entry == entries_.end() ? nullptr : &entry->second;
}

bool ValueMap::hasRepeatedKeys() const {
  std::vector<std::string_view> keys;
  keys.reserve(size());
  for (const auto& [key, value] : entries_) {
    if (const std::string* name = key.asString()) keys.push_back(*name);
  }
  std::ranges::sort(keys);
  return std::ranges::adjacent_find(keys) != keys.end();
}

std::size_t ValueMap::size() const { return entries_.size(); }
const ValueMap::Entry* ValueMap::begin() const { return entries_.data(); }
const ValueMap::Entry* ValueMap::end() const { return entries_.data() + entries_.size(); }

bool operator==(const ValueMap& a, const ValueMap& b) {
  return a.size() == b.size() && std::ranges::is_permutation(a.entries_, b.entries_);
}

std::optional<bool> Value::asBool() const { return copied(as<bool>()); }

std::optional<std::int64_t> Value::asInteger() const {
  if (const auto* narrow = as<std::int32_t>()) return *narrow;
  return copied(as<std::int64_t>());
}

std::optional<double> Value::asDouble() const { return copied(as<double>()); }

const Value& Value::at(std::string_view key) const {
  static const Value nil;
  const ValueMap* map = asMap();
  const Value* found = map == nullptr ? nullptr : map->find(key);
  return found == nullptr ? nil : *found;
}

}  // namespace quillbeam
