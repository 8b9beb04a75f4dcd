#pragma once

#include <set>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/Interrupts.h"
#include "cli/NativeClient.h"
#include "cli/ProgressLine.h"
#include "upload/MacNativeUploadSession.h"

namespace quillbeam::cli {

/// `quillbeam uploads`: the upload sessions on disk; `uploads resume` goes on with them, `uploads abort ID` ends one.
class UploadsCommand final : public Command {
 public:
  explicit UploadsCommand(CLI::App& program);
  ExitCode run() override;

 private:
  using Sessions = std::vector<MacNativeUploadSession>;

  static Sessions load(Platform& platform);
  ExitCode list(Platform& platform) const;
  Task<ExitCode> resume(Platform& platform, Interrupts& interrupts);
  Task<void> resumeThrough(Platform& platform, Interrupts& interrupts, NativeClient& client);
  Task<ExitCode> abort(Platform& platform);
  ExitCode reportResumed(Platform& platform, const Sessions& before) const;

  CLI::App* resume_;
  CLI::App* abort_;
  std::string sessionId_;
  bool asJson_ = false;
};

/// One line of the list.
std::string sessionText(const MacNativeUploadSession& session, Date now);
/// "40 s", "3 min", "2 h", "5 d".
std::string ageText(Date then, Date now);

}  // namespace quillbeam::cli
