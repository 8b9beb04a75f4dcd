#pragma once

#include <memory>
#include <optional>

#include "app/NativeHalf.h"

namespace quillbeam::cli {

/// The native half of the user's data directory, whoever runs it: this process when nobody else does, otherwise the
/// process that holds it. Main queue.
class NativeHost {
 public:
  /// `command` is what this process calls itself when it becomes the native half.
  static Task<std::unique_ptr<NativeHost>> find(Platform& platform, std::string command,
                                                ResumeUploads resumeUploads = ResumeUploads::yes);

  const Path& socketPath() const { return socketPath_; }
  bool isForeign() const { return isForeign_; }
  /// Which process it is.
  const std::string& description() const { return description_; }
  /// Ends it in an orderly way when it is this process.
  Task<void> release();

 private:
  NativeHost(std::unique_ptr<NativeHalf> own, Path socketPath, std::string description)
      : own_(std::move(own)),
        isForeign_(own_ == nullptr),
        socketPath_(std::move(socketPath)),
        description_(std::move(description)) {}
  static Result<std::unique_ptr<NativeHost>> tryOnce(Platform& platform, const std::string& command,
                                                     ResumeUploads resumeUploads);

  std::unique_ptr<NativeHalf> own_;
  const bool isForeign_;
  Path socketPath_;
  std::string description_;
};

std::string describe(const RunningNativeHalf& running);

}  // namespace quillbeam::cli
