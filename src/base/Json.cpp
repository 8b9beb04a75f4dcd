#include "base/Json.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "base/ByteChain.h"
#include "base/Text.h"

namespace quillbeam {

namespace {

constexpr std::size_t deepestNesting = 128;

Error malformed(const std::string& what) {
  return Error(CommonError::malformedData).withDescription("The JSON text is malformed: " + what);
}

Error unsupported(const std::string& what) {
  return Error(CommonError::unsupported).withDescription("JSON cannot hold " + what);
}

std::string base64(ByteSpan bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (k < count ? bytes[i + k] : 0u);
    for (std::size_t k = 0; k < 4; ++k) text += k <= count ? digits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

/// Writes text member by member; the library only spells strings.
class Writer {
 public:
  explicit Writer(JsonLayout layout) : layout_(layout) {}

  Result<void> write(const Value& value) {
    return std::visit([this](const auto& alternative) { return put(alternative); }, value.variant());
  }
  std::string take() { return std::move(text_); }

 private:
  Result<void> put(std::monostate) { return word("null"); }
  Result<void> put(bool flag) { return word(flag ? "true" : "false"); }
  Result<void> put(std::int32_t number) { return word(std::to_string(number)); }
  Result<void> put(std::int64_t number) { return word(std::to_string(number)); }
  Result<void> put(float number) { return put(static_cast<double>(number)); }
  Result<void> put(double number) {
    if (!std::isfinite(number)) return unsupported("a number that is not finite");
    return word(decimal(number));
  }
  Result<void> put(const std::string& string) {
    try {
      return word(nlohmann::ordered_json(string).dump());
    } catch (const nlohmann::json::exception&) {
      return unsupported("text that is not UTF-8");
    }
  }
  Result<void> put(const Value::Bytes& bytes) { return word('"' + base64(bytes) + '"'); }
  Result<void> put(const ValueMap& map) {
    return bracketed('{', map, '}', [this](const ValueMap::Entry& entry) -> Result<void> {
      const std::string* name = entry.first.asString();
      if (name == nullptr) return unsupported("a map key that is no string");
      TRY_VOID(put(*name));
      text_ += layout_ == JsonLayout::indented ? ": " : ":";
      return write(entry.second);
    });
  }
  Result<void> put(const ValueList& list) {
    return bracketed('[', list, ']', [this](const Value& item) { return write(item); });
  }
  template <class Number>
  Result<void> put(const std::vector<Number>& numbers) {
    return bracketed('[', numbers, ']', [this](Number number) { return put(number); });
  }

  template <class Items, class WriteItem>
  Result<void> bracketed(char open, const Items& items, char close, WriteItem writeItem) {
    if (++depth_ > deepestNesting) return unsupported("values nested this deep");
    text_ += open;
    bool first = true;
    for (const auto& item : items) {
      if (!std::exchange(first, false)) text_ += ',';
      breakLine();
      TRY_VOID(writeItem(item));
    }
    --depth_;
    if (!first) breakLine();
    text_ += close;
    return success;
  }

  Result<void> word(std::string_view word) {
    text_ += word;
    return success;
  }

  void breakLine() {
    if (layout_ != JsonLayout::indented) return;
    text_ += '\n';
    text_.append(2 * depth_, ' ');
  }

  JsonLayout layout_;
  std::size_t depth_ = 0;
  std::string text_;
};

/// Receives the library's parse events; its parser keeps no call stack, so depth is ours to bound.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  Result<Value> take() {
    if (fault_) return *std::move(fault_);
    return std::move(root_);
  }

  bool null() override { return add(nullptr); }
  bool boolean(bool flag) override { return add(flag); }
  bool number_integer(std::int64_t number) override {
    return std::in_range<std::int32_t>(number) ? add(static_cast<std::int32_t>(number)) : add(number);
  }
  bool number_unsigned(std::uint64_t number) override {
    if (std::in_range<std::int64_t>(number)) return number_integer(static_cast<std::int64_t>(number));
    return add(static_cast<double>(number));
  }
  bool number_float(double number, const std::string&) override { return add(number); }
  bool string(std::string& text) override { return add(std::move(text)); }
  bool binary(nlohmann::json::binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(ValueMap()); }
  bool start_array(std::size_t) override { return open(ValueList()); }
  bool key(std::string& name) override {
    open_.back().key = std::move(name);
    return true;
  }
  bool end_array() override {
    Container done = close();
    return add(std::move(done.list));
  }
  bool end_object() override {
    Container done = close();
    if (!done.map.hasRepeatedKeys()) return add(std::move(done.map));
    fault_ = malformed("an object names a member twice");
    return false;
  }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception&) override {
    fault_ = malformed("at byte " + std::to_string(position));
    return false;
  }

 private:
  struct Container {
    bool isMap;
    ValueMap map;
    ValueList list;
    std::string key;
  };

  bool open(Value empty) {
    if (open_.size() == deepestNesting) {
      fault_ = malformed("nested deeper than " + std::to_string(deepestNesting) + " levels");
      return false;
    }
    open_.push_back({empty.asMap() != nullptr, {}, {}, {}});
    return true;
  }

  Container close() {
    Container done = std::move(open_.back());
    open_.pop_back();
    return done;
  }

  bool add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (open_.back().isMap) {
      open_.back().map.append(std::move(open_.back().key), std::move(value));
    } else {
      open_.back().list.push_back(std::move(value));
    }
    return true;
  }

  Value root_;
  std::vector<Container> open_;
  std::optional<Error> fault_;
};

}  // namespace

Result<std::string> toJson(const Value& value, JsonLayout layout) {
  Writer writer(layout);
  TRY_VOID(writer.write(value));
  return writer.take();
}

Result<Value> parseJson(std::string_view text) {
  Builder builder;
  nlohmann::json::sax_parse(text, &builder);
  return builder.take();
}

}  // namespace quillbeam
