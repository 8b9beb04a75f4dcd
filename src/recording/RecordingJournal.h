#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Date.h"
#include "base/Record.h"
#include "platform/Files.h"
#include "platform/Places.h"
#include "platform/Random.h"

namespace quillbeam {

/// One recording whose file is being written.
struct OpenRecording {
  std::string id;
  std::string filePath;
  Date startedAt;
  std::optional<std::string> mixInto;  ///< its tracks are to be mixed into this file when it is finished
  static constexpr auto fields() {
    return std::tuple(field("id", &OpenRecording::id), field("filePath", &OpenRecording::filePath),
                      field("startedAt", &OpenRecording::startedAt), field("mixInto", &OpenRecording::mixInto));
  }
};

/// Which recordings are open, on disk: a record per recording in "open_recordings", written durably before its file
/// exists and removed when the file is finished. Records found at launch are those of a process that died, because the
/// data directory belongs to one live process at a time. Blocks for a moment; called on the main queue at start and
/// end.
class RecordingJournal {
 public:
  RecordingJournal(Files& files, const Places& places, Random& random);

  /// The new record's id.
  Result<std::string> open(const Path& filePath, Date now, std::optional<Path> mixInto = std::nullopt);
  /// From now on the tracks are to be mixed into another file. After an error the record is as it was.
  Result<void> redirect(OpenRecording recording, const Path& mixInto);
  void close(const std::string& id);
  /// Every record there is; unreadable ones are set aside. At launch these are recordings whose process died.
  std::vector<OpenRecording> openRecordings();

 private:
  Path recordPath(const std::string& id) const;
  Result<void> write(const OpenRecording& record);

  Files& files_;
  Random& random_;
  const Path directory_;
};

}  // namespace quillbeam
