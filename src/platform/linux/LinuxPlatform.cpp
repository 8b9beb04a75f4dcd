#include "platform/linux/LinuxPlatform.h"

#include <unistd.h>

#include "platform/linux/capture/LinuxScreenCapture.h"
#include "platform/linux/curl/CurlNetwork.h"
#include "platform/linux/ffmpeg/FfmpegMediaWriters.h"
#include "platform/linux/posix/Environment.h"
#include "platform/linux/posix/JsonUserDefaults.h"
#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/PrintingStandardOutput.h"
#include "platform/linux/posix/ProcMemory.h"
#include "platform/linux/posix/SystemLogs.h"
#include "platform/linux/posix/UnixSockets.h"
#include "platform/linux/posix/UrandomRandom.h"
#include "platform/linux/pulse/PulseCaptureDevices.h"
#include "platform/linux/pulse/PulseContext.h"
#include "platform/linux/pulse/PulseSoundSources.h"
#include "platform/linux/x11/X11Permissions.h"

namespace quillbeam {

namespace {

/// Diagnostic lines for processes whose standard output belongs to something else.
class LoggedLines final : public StandardOutput {
 public:
  explicit LoggedLines(SystemLog& log) : log_(log, bundleIdentifier, "Recorder") {}
  void print(std::string_view line) override { log_.info(line); }

 private:
  Logger log_;
};

std::unique_ptr<SystemLog> makeSystemLog(StandardOutput& standardError) {
  const LogLevel level = logLevelFromEnvironment();
  if (auto journal = JournalLog::create(level)) return journal;
  return std::make_unique<StderrLog>(standardError, level);
}

std::unique_ptr<StandardOutput> makeLines(LinuxPlatform::DiagnosticLines lines, SystemLog& log) {
  switch (lines) {
    case LinuxPlatform::DiagnosticLines::standardOutput:
      return std::make_unique<PrintingStandardOutput>(STDOUT_FILENO);
    case LinuxPlatform::DiagnosticLines::standardError:
      return std::make_unique<PrintingStandardOutput>(STDERR_FILENO);
    case LinuxPlatform::DiagnosticLines::systemLog:
      return std::make_unique<LoggedLines>(log);
  }
  std::unreachable();
}

}  // namespace

struct LinuxPlatform::Parts {
  explicit Parts(DiagnosticLines diagnosticLines)
      : standardError(STDERR_FILENO),
        log(makeSystemLog(standardError)),
        lines(makeLines(diagnosticLines, *log)),
        places(xdgPlaces()),
        userDefaults(dispatch, files, *log, joined(joined(places.preferences, bundleIdentifier), "defaults.json")),
        sounds(pulse),
        captureDevices(pulse),
        screenCapture(dispatch, sounds, *log),
        network(dispatch) {}

  // The logs first: work on the global queue may log until the dispatch is gone.
  PrintingStandardOutput standardError;
  std::unique_ptr<SystemLog> log;
  std::unique_ptr<StandardOutput> lines;
  LinuxDispatch dispatch;
  Places places;
  PosixFiles files;
  UrandomRandom random;
  JsonUserDefaults userDefaults;
  UnixSockets sockets;
  PulseContext pulse;
  PulseSoundSources sounds;
  PulseCaptureDevices captureDevices;
  X11Permissions permissions;
  LinuxScreenCapture screenCapture;
  FfmpegMediaWriters mediaWriters;
  ProcMemory processMemory;
  CurlNetwork network;
  Platform platform{.processId = getpid(),
                    .dispatch = dispatch,
                    .files = files,
                    .places = places,
                    .localSockets = sockets,
                    .standardOutput = *lines,
                    .systemLog = *log,
                    .userDefaults = userDefaults,
                    .random = random,
                    .systemVersion = systemVersionFromEnvironment(),
                    .permissions = permissions,
                    .screenCapture = screenCapture,
                    .captureDevices = captureDevices,
                    .mediaWriters = mediaWriters,
                    .network = network,
                    .processMemory = processMemory};
};

LinuxPlatform::LinuxPlatform(DiagnosticLines lines) : parts_(std::make_unique<Parts>(lines)) {}
LinuxPlatform::~LinuxPlatform() = default;

Platform& LinuxPlatform::platform() { return parts_->platform; }
LinuxDispatch& LinuxPlatform::dispatch() { return parts_->dispatch; }

}  // namespace quillbeam
