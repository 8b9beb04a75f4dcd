#include "platform/linux/posix/JsonUserDefaults.h"

#include <cerrno>

#include "base/Json.h"

namespace quillbeam {

JsonUserDefaults::JsonUserDefaults(Dispatch& dispatch, Files& files, SystemLog& log, Path path)
    : main_(dispatch.main()),
      files_(files),
      log_(log, "platform", "defaults"),
      path_(std::move(path)),
      disk_(dispatch.makeSerialQueue("io.quillbeam.user-defaults")) {
  main_.assertCurrent();
  load();
}

JsonUserDefaults::~JsonUserDefaults() {
  main_.assertCurrent();
  if (writePending_) write();
}

void JsonUserDefaults::load() {
  const Result<Bytes> bytes = files_.read(path_);
  if (!bytes) {
    if (bytes.error().code() != ENOENT) log_.error("cannot read the settings: " + bytes.error().description());
    return;
  }
  const Result<Value> values = parseJson(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
  if (!values) return setAside(values.error());
  const ValueMap* entries = values->asMap();
  if (entries == nullptr) return setAside(CommonError::malformedData);
  for (const auto& [key, value] : *entries) values_[*key.asString()] = value;
}

void JsonUserDefaults::setAside(const Error& error) {
  log_.error("the settings file is damaged and was set aside: " + error.description());
  if (auto renamed = files_.rename(path_, path_ + ".corrupt"); !renamed) log_.error(renamed.error().description());
}

Value JsonUserDefaults::get(std::string_view key) const {
  main_.assertCurrent();
  const auto found = values_.find(key);
  return found == values_.end() ? Value() : found->second;
}

void JsonUserDefaults::set(std::string_view key, Value value) {
  main_.assertCurrent();
  // One value that has no JSON form would keep all the others from being written for ever.
  if (auto text = toJson(value); !text) {
    return log_.error("a setting was not kept: " + std::string(key) + ": " + text.error().description());
  }
  if (value.isNil()) {
    values_.erase(std::string(key));
  } else {
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  scheduleWrite();
}

void JsonUserDefaults::scheduleWrite() {
  if (std::exchange(writePending_, true)) return;
  main_.async(weakly(this, [](JsonUserDefaults& self) {
    self.main_.assertCurrent();
    self.write();
  }));
}

void JsonUserDefaults::write() {
  writePending_ = false;
  ValueMap entries;
  for (const auto& [key, value] : values_) entries.append(key, value);
  disk_->async([this, values = Value(std::move(entries))] {
    const std::string text = toJson(values, JsonLayout::indented).value() + "\n";
    Result<void> written = files_.createDirectories(Path(parentDirectory(path_)));
    if (written) written = files_.writeAtomically(path_, ByteChain(Bytes(text.begin(), text.end())));
    if (!written) log_.error("cannot write the settings: " + written.error().description());
  });
}

}  // namespace quillbeam
