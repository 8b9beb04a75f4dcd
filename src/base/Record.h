#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "base/Date.h"
#include "base/Result.h"
#include "base/Value.h"

namespace quillbeam {

/// A record that is persisted or sent names its fields once, in order:
///
///     struct JournalEntry {
///       std::string id;
///       std::optional<std::string> teamId;
///       Date startedAt;
///       static constexpr auto fields() {
///         return std::tuple(field("id", &JournalEntry::id), field("teamId", &JournalEntry::teamId),
///                           field("startedAt", &JournalEntry::startedAt));
///       }
///     };
///
/// `toValue(entry)` and `fromValue<JournalEntry>(value)` derive from that list. Absent optionals are left out of the
/// map; unknown members are ignored on the way in; a missing or mistyped member is `CommonError::malformedData`
/// naming it. Dates travel as the text that `iso8601` writes, and no other. Enumerations give
/// `std::string toText(E)` and `std::optional<E> fromText(std::type_identity<E>, std::string_view)` beside them.
template <class Record, class Member>
struct Field {
  std::string_view name;
  Member Record::* member;
};

template <class Record, class Member>
constexpr Field<Record, Member> field(std::string_view name, Member Record::* member) {
  return {name, member};
}

template <class T>
concept RecordType = requires { T::fields(); };

template <RecordType Record>
Value toValue(const Record& record);

template <RecordType Record>
Result<Record> fromValue(const Value& value);

}  // namespace quillbeam

#include "base/RecordImpl.h"
