#include "base/Date.h"

#include <cstdio>
#include <optional>

namespace quillbeam {

namespace {

using namespace std::chrono;

/// Reads a text from its front; every step says whether it found what it looked for.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool atEnd() const { return rest_.empty(); }

  bool literal(char expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool number(int digits, int& number) {
    number = 0;
    for (int i = 0; i < digits; ++i) {
      const auto value = digit();
      if (!value) return false;
      number = number * 10 + *value;
    }
    return true;
  }

  /// The digits after the point, cut to microseconds.
  bool fraction(microseconds& fraction) {
    microseconds unit = 100ms;
    auto value = digit();
    if (!value) return false;
    for (fraction = 0us; value; value = digit(), unit /= 10) fraction += *value * unit;
    return true;
  }

 private:
  std::optional<int> digit() {
    if (rest_.empty() || rest_.front() < '0' || rest_.front() > '9') return std::nullopt;
    const int value = rest_.front() - '0';
    rest_.remove_prefix(1);
    return value;
  }

  std::string_view rest_;
};

bool scanDay(Scanner& text, sys_days& day) {
  int yearNumber = 0, monthNumber = 0, dayNumber = 0;
  if (!text.number(4, yearNumber) || !text.literal('-') || !text.number(2, monthNumber) || !text.literal('-') ||
      !text.number(2, dayNumber)) {
    return false;
  }
  const year_month_day date{year(yearNumber), month(static_cast<unsigned>(monthNumber)),
                            std::chrono::day(static_cast<unsigned>(dayNumber))};
  day = date;
  return date.ok();
}

bool scanTime(Scanner& text, microseconds& time) {
  int hour = 0, minute = 0, second = 0;
  if (!text.number(2, hour) || !text.literal(':') || !text.number(2, minute) || !text.literal(':') ||
      !text.number(2, second) || hour > 23 || minute > 59 || second > 59) {
    return false;
  }
  microseconds fraction = 0us;
  if (text.literal('.') && !text.fraction(fraction)) return false;
  time = hours(hour) + minutes(minute) + seconds(second) + fraction;
  return true;
}

bool scanOffset(Scanner& text, minutes& offset) {
  offset = 0min;
  if (text.literal('Z')) return true;
  const bool west = text.literal('-');
  if (!west && !text.literal('+')) return false;
  int hour = 0, minute = 0;
  if (!text.number(2, hour)) return false;
  text.literal(':');
  if (!text.number(2, minute) || hour > 23 || minute > 59) return false;
  offset = hours(hour) + minutes(minute);
  if (west) offset = -offset;
  return true;
}

}  // namespace

std::string iso8601(Date date) {
  const auto second = floor<seconds>(date);
  const auto day = floor<days>(second);
  const year_month_day calendar(day);
  const hh_mm_ss time(second - day);
  char text[48];
  std::snprintf(text, sizeof(text), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(calendar.year()),
                static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

Result<Date> parseIso8601(std::string_view text) {
  Scanner scanner(text);
  sys_days day;
  microseconds time = 0us;
  minutes offset = 0min;
  const bool fits = scanDay(scanner, day) && scanner.literal('T') && scanTime(scanner, time) &&
                    scanOffset(scanner, offset) && scanner.atEnd();
  if (!fits) return CommonError::malformedData;
  return Date(day) + time - offset;
}

double secondsSince1970(Date date) { return duration<double>(date.time_since_epoch()).count(); }

}  // namespace quillbeam
