#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "base/Task.h"
#include "platform/Platform.h"

namespace quillbeam {

/// A part's bytes: in memory, or a piece of a file that stays where it is.
using PartContent = std::variant<ByteChain, FilePiece>;
std::int64_t sizeOf(const PartContent& content);

/// The files in which parts wait for their transfer: "temp_chunks/<session id>_part<number>.chunk", holding exactly the
/// part's bytes. Removals, looks and listings run in order on a queue of their own, writes beside them; methods are
/// callable from the main queue, removals from any.
class PartFiles {
 public:
  /// Creates the directory, here and now; without it there are no part files.
  PartFiles(Platform& platform, const Logger& logger);

  bool isAvailable() const { return directory_.has_value(); }
  /// Only when available.
  Path path(const std::string& sessionId, int partNumber) const;

  /// On disk, durably, when it resumes; nothing is left of a write that failed. Several go on at a time.
  Task<void> write(Path file, PartContent content);
  /// The file's size; nullopt when there is none.
  Task<std::optional<std::int64_t>> size(Path file);
  /// Soon; a failure is nobody's business.
  void remove(const Path& file);
  /// Removes, soon, every file of the session.
  void cleanupTempFiles(const std::string& sessionId);
  /// Names of all that is in the directory.
  Task<std::vector<std::string>> list();
  /// Removes, of these names, soon, what belongs to none of the sessions.
  void sweep(std::vector<std::string> names, const std::set<std::string>& sessionIds);
  /// Resumes when everything asked for before is done.
  Task<void> flushed();

 private:
  void createDirectory(const Places& places);

  Files& files_;
  const Logger& logger_;
  std::optional<Path> directory_;
  std::array<std::unique_ptr<DispatchQueue>, 6> writeQueues_;
  std::size_t nextWriteQueue_ = 0;
  std::unique_ptr<DispatchQueue> diskQueue_;  // last: it runs what waits on it before the rest goes
};

/// The session that a part file belongs to; nullopt for other names.
std::optional<std::string> sessionOfPartFile(std::string_view name);

}  // namespace quillbeam
