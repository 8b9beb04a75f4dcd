#include "FaultRule.h"

#include <charconv>
#include <stdexcept>

namespace quillbeam::service {

namespace {

template <class Number>
Number number(const std::string& key, const std::string& value, Number least, Number most) {
  Number parsed{};
  const char* end = value.data() + value.size();
  const auto result = std::from_chars(value.data(), end, parsed);
  if (value.empty() || result.ec != std::errc() || result.ptr != end || !(parsed >= least && parsed <= most)) {
    throw std::invalid_argument("\"" + value + "\" is no value for " + key);
  }
  return parsed;
}

constexpr int most = std::numeric_limits<int>::max();

std::chrono::milliseconds milliseconds(const std::string& key, const std::string& value) {
  return std::chrono::milliseconds(number(key, value, 1, most));
}

struct FaultKind {
  std::string_view key;
  enum class Takes { nothing, value } takes;
  void (*apply)(Fault& fault, const std::string& key, const std::string& value);
  std::optional<Endpoint> onlyFor{};
};

constexpr auto value = FaultKind::Takes::value;
constexpr auto nothing = FaultKind::Takes::nothing;
using Text = const std::string&;

const FaultKind faultKinds[] = {
    {"status", value, [](Fault& fault, Text key, Text text) { fault.status = number(key, text, 200, 599); }},
    {"delay", value, [](Fault& fault, Text key, Text text) { fault.delay = milliseconds(key, text); }},
    {"stall", value, [](Fault& fault, Text key, Text text) { fault.stall = milliseconds(key, text); }, Endpoint::put},
    {"close", nothing, [](Fault& fault, Text, Text) { fault.close = true; }},
    {"lost-answer", nothing, [](Fault& fault, Text, Text) { fault.lostAnswer = true; }},
    {"unauthorized", nothing, [](Fault& fault, Text, Text) { fault.status = 401; }},
    {"bad-json", nothing, [](Fault& fault, Text, Text) { fault.badJson = true; }},
    {"no-etag", nothing, [](Fault& fault, Text, Text) { fault.noEtag = true; }, Endpoint::put},
    {"expired", nothing, [](Fault& fault, Text, Text) { fault.expired = true; }, Endpoint::url},
};

const FaultKind* kindNamed(std::string_view key) {
  for (const FaultKind& kind : faultKinds) {
    if (kind.key == key) return &kind;
  }
  return nullptr;
}

std::uint64_t mixed(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15u;
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9u;
  value = (value ^ value >> 27) * 0x94D049BB133111EBu;
  return value ^ value >> 31;
}

}  // namespace

void Fault::add(const Fault& other) {
  text += (text.empty() ? "" : " ") + other.text;
  delay += other.delay;
  stall += other.stall;
  if (!status) {
    status = other.status;
    body = other.body;
  }
  close |= other.close;
  lostAnswer |= other.lostAnswer;
  badJson |= other.badJson;
  noEtag |= other.noEtag;
  expired |= other.expired;
}

FaultRule FaultRule::parse(const std::string& text) {
  FaultRule rule;
  std::size_t comma = std::min(text.find(','), text.size());
  const std::string name = text.substr(0, comma);
  rule.endpoint_ = endpointNamed(name);
  if (!rule.endpoint_ && name != "any") throw std::invalid_argument("\"" + name + "\" is no endpoint");
  while (comma < text.size()) {
    const std::size_t start = comma + 1;
    const bool isBody = text.compare(start, 5, "body=") == 0;
    comma = isBody ? text.size() : std::min(text.find(',', start), text.size());
    const std::string field = text.substr(start, comma - start);
    const std::size_t equals = field.find('=');
    rule.set(field.substr(0, equals), equals == std::string::npos ? "" : field.substr(equals + 1));
  }
  rule.checkWhole();
  return rule;
}

bool FaultRule::setCondition(const std::string& key, const std::string& value) {
  if (key == "part") {
    part_ = number(key, value, 1, most);
  } else if (key == "from") {
    from_ = number(key, value, 1, most);
  } else if (key == "times") {
    times_ = number(key, value, 1, most);
  } else if (key == "max-per-part") {
    maxPerPart_ = number(key, value, 1, most);
  } else if (key == "probability") {
    probability_ = number(key, value, 0.0, 1.0);
  } else if (key == "seed") {
    seed_ = number<std::uint64_t>(key, value, 0, std::numeric_limits<std::uint64_t>::max());
  } else {
    return false;
  }
  return true;
}

void FaultRule::set(const std::string& key, const std::string& value) {
  if (setCondition(key, value)) return;
  if (key == "body") {
    fault_.body = value;
    return;
  }
  const FaultKind* kind = kindNamed(key);
  if (kind == nullptr) throw std::invalid_argument("\"" + key + "\" is neither a condition nor a fault");
  if (!fault_.text.empty()) throw std::invalid_argument("a rule has one fault, not " + fault_.text + " and " + key);
  if (kind->takes == FaultKind::Takes::nothing && !value.empty()) {
    throw std::invalid_argument(key + " takes no value");
  }
  if (kind->onlyFor && endpoint_ != kind->onlyFor) {
    throw std::invalid_argument(key + " is only for " + std::string(nameOf(*kind->onlyFor)));
  }
  kind->apply(fault_, key, value);
  fault_.text = value.empty() ? key : key + "=" + value;
}

void FaultRule::checkWhole() const {
  if (fault_.text.empty()) throw std::invalid_argument("what goes wrong is missing");
  if (!fault_.body.empty() && !fault_.status) throw std::invalid_argument("body is only for status");
  if (fault_.badJson && endpoint_ == Endpoint::put) throw std::invalid_argument("put answers no JSON");
}

bool FaultRule::isAbout(const Occasion& occasion) const {
  return (!endpoint_ || endpoint_ == occasion.endpoint) && (!part_ || part_ == occasion.part);
}

bool FaultRule::chanceStrikes(const Occasion& occasion, int request) const {
  if (probability_ >= 1) return true;
  std::uint64_t drawn = mixed(seed_);
  drawn = mixed(drawn ^ static_cast<std::uint64_t>(occasion.endpoint));
  drawn = mixed(drawn ^ static_cast<std::uint64_t>(occasion.part));
  drawn = mixed(drawn ^ static_cast<std::uint64_t>(request));
  return static_cast<double>(drawn >> 11) * 0x1p-53 < probability_;
}

const Fault* FaultRule::judge(const Occasion& occasion) {
  if (!isAbout(occasion)) return nullptr;
  History& history = histories_[{occasion.endpoint, occasion.fileId, occasion.part}];
  ++requests_;
  ++history.requests;
  if (requests_ < from_ || faults_ >= times_ || history.faults >= maxPerPart_) return nullptr;
  if (!chanceStrikes(occasion, history.requests)) return nullptr;
  ++faults_;
  ++history.faults;
  return &fault_;
}

}  // namespace quillbeam::service
