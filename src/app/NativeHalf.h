#pragma once

#include <memory>
#include <string>
#include <tuple>

#include "app/UploadLaunch.h"
#include "base/Record.h"
#include "base/Result.h"
#include "base/Task.h"
#include "platform/Platform.h"

namespace quillbeam {

/// The native half of a running process: owns the data directory, the services and the channels, and answers UI layers
/// that connect to its socket. One per data directory. Main queue.
class NativeHalf {
 public:
  struct Options {
    std::string command;  ///< what the process was started as ("serve", "record"), for those who find it running
    Path socketPath;
    ResumeUploads resumeUploads = ResumeUploads::yes;
  };

  /// Takes the data directory's lock, opens the channels and listens; repairs in the background the recordings that a
  /// dead process left open, and goes on with its uploads. `FilesError::locked` when another process is the native half
  /// (see `findRunningNativeHalf`); otherwise the failing port's error.
  static Result<std::unique_ptr<NativeHalf>> create(Platform& platform, Options options);
  ~NativeHalf();

  const Path& socketPath() const;
  /// Stops a running recording and finishes its file; leaves uploads on disk as the next launch wants them. For the
  /// end of the process.
  Task<void> shutDown();

 private:
  struct Parts;
  explicit NativeHalf(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

/// Where UI layers look for the native half: "io.quillbeam.app/native.sock" in the user's runtime directory.
Path defaultSocketPath(const Places& places);

struct RunningNativeHalf {
  std::int64_t processId = 0;
  std::string command;
  Path socketPath;
  static constexpr auto fields() {
    return std::tuple(field("processId", &RunningNativeHalf::processId), field("command", &RunningNativeHalf::command),
                      field("socketPath", &RunningNativeHalf::socketPath));
  }
};

/// Who holds the data directory; `LocalSocketError::notListening` when nobody does.
Result<RunningNativeHalf> findRunningNativeHalf(Files& files, const Places& places);

/// Whether a live native half is writing `file` (an absolute path) right now.
bool isBeingRecorded(Platform& platform, const Path& file);

}  // namespace quillbeam
