#pragma once

#include "cli/Interrupts.h"
#include "cli/NativeClient.h"
#include "cli/ProgressLine.h"
#include "cli/UploadFigures.h"

namespace quillbeam::cli {

/// One upload of a file through a native half, from its start to its end or until the user gives up. Main queue.
class UploadRun {
 public:
  struct Request {
    Path file;
    std::string teamId;
    std::string folderId;
    std::string fileName;
    std::string contentType;
  };

  UploadRun(Platform& platform, NativeClient& client, Interrupts& interrupts, Request request)
      : platform_(platform), client_(client), interrupts_(interrupts), request_(std::move(request)) {}

  Task<UploadFigures> run();
  /// Since the start.
  double bytesPerSecond() const;
  double seconds() const;

 private:
  Task<void> look();
  Task<void> giveUp();

  Platform& platform_;
  NativeClient& client_;
  Interrupts& interrupts_;
  const Request request_;
  Value id_;
  MediaTime startedAt_;
  UploadFigures figures_;
  ProgressLine progress_;
};

}  // namespace quillbeam::cli
