#include "recording/RecordingJournal.h"

#include <tuple>

#include "base/Json.h"

namespace quillbeam {

namespace {

Result<OpenRecording> parse(const Bytes& bytes) {
  TRY(const Value value, parseJson(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())));
  return fromValue<OpenRecording>(value);
}

ByteChain encoded(const std::string& text) { return ByteChain(Bytes(text.begin(), text.end())); }

}  // namespace

RecordingJournal::RecordingJournal(Files& files, const Places& places, Random& random)
    : files_(files),
      random_(random),
      directory_(joined(joined(places.applicationSupport, bundleIdentifier), "open_recordings")) {}

Path RecordingJournal::recordPath(const std::string& id) const { return joined(directory_, id + ".json"); }

Result<std::string> RecordingJournal::open(const Path& filePath, Date now, std::optional<Path> mixInto) {
  const OpenRecording record{
      .id = random_.uuid().string(), .filePath = filePath, .startedAt = now, .mixInto = std::move(mixInto)};
  TRY_VOID(files_.createDirectories(directory_));
  TRY_VOID(write(record));
  return record.id;
}

Result<void> RecordingJournal::redirect(OpenRecording recording, const Path& mixInto) {
  recording.mixInto = mixInto;
  return write(recording);
}

Result<void> RecordingJournal::write(const OpenRecording& record) {
  TRY(const std::string text, toJson(toValue(record), JsonLayout::indented));
  return files_.writeAtomically(recordPath(record.id), encoded(text));
}

void RecordingJournal::close(const std::string& id) {
  // A record that stays is harmless: its file is found complete at the next launch.
  std::ignore = files_.remove(recordPath(id));
}

std::vector<OpenRecording> RecordingJournal::openRecordings() {
  std::vector<OpenRecording> found;
  const auto names = files_.list(directory_);
  if (!names) return found;
  for (const std::string& name : *names) {
    if (fileExtension(name) != "json") continue;
    const Path path = joined(directory_, name);
    const auto bytes = files_.read(path);
    if (!bytes) continue;
    auto record = parse(*bytes);
    if (record && name == record->id + ".json") {
      found.push_back(*std::move(record));
    } else {
      std::ignore = files_.rename(path, path + ".unreadable");
    }
  }
  return found;
}

}  // namespace quillbeam
