#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "cli/Interrupts.h"
#include "cli/NativeClient.h"
#include "cli/ProgressLine.h"
#include "cli/RecordingFigures.h"
#include "cli/UploadTransfer.h"

namespace quillbeam::cli {

/// Whether a recording in this mode has pictures, or is sound alone.
inline bool recordsPictures(std::string_view mode) { return mode.starts_with("screen"); }

/// One recording through a native half, from choosing the display to the finished file.
///
///     select (what has pictures) → start → watch (until told to stop, the time is up, or something breaks) → stop
class RecordingRun {
 public:
  struct Request {
    Path filePath;
    std::string mode;
    bool includeSystemAudio = true;
    bool includeMicrophone = true;
    std::optional<Duration> length;  ///< from the moment when the recording runs; unlimited when not set
    /// Where it is uploaded to while it runs.
    struct Upload {
      std::string teamId;
      std::string folderId;
      std::string fileName;
    };
    std::optional<Upload> upload;
  };
  struct Outcome {
    ExitCode code = ExitCode::failed;
    std::string complaint;  ///< what went wrong; empty when nothing did
    RecordingFigures figures;
    Value stopReply;  ///< the native half's answer to the stop; nil when there was none
  };

  RecordingRun(Platform& platform, NativeClient& client, Interrupts& interrupts, Request request)
      : platform_(platform), client_(client), interrupts_(interrupts), request_(std::move(request)) {}

  Task<Outcome> run();

 private:
  Task<void> start();
  Task<void> watch();
  Task<void> readFigures();
  Task<void> readUpload();
  Task<Outcome> stop();
  Task<Value> awaitStop();
  enum class StopStage { file, mix, upload };
  Task<StopStage> showStopStage();
  std::string runningText(double elapsedSeconds) const;
  Task<Value> watchUpload();
  Error whyNoFile(const Error& error) const;
  Error uploadFailed(const std::string& why) const;
  Error stoppedWaiting() const;
  std::string remedy() const;
  bool hasFile() const;
  Task<Outcome> failedToStart(Error error);
  Outcome failed(const Error& error) const;

  Platform& platform_;
  NativeClient& client_;
  Interrupts& interrupts_;
  const Request request_;
  MediaTime startedAt_;
  RecordingFigures figures_;
  UploadTransfer transfer_;
  ProgressLine progress_;
};

}  // namespace quillbeam::cli
