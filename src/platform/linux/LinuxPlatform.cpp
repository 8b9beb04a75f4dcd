#include "platform/linux/LinuxPlatform.h"

#include <unistd.h>

#include "platform/linux/capture/LinuxScreenCapture.h"
#include "platform/linux/curl/CurlNetwork.h"
#include "platform/linux/ffmpeg/FfmpegAudioExporter.h"
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
#include "platform/linux/qt/DBusUserNotifications.h"
#include "platform/linux/qt/QtWindowSystem.h"
#include "platform/linux/x11/X11Connection.h"
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

/// Of processes that show no windows.
class NoWindowSystem final : public WindowSystem {
 public:
  void setApplicationDelegate(ApplicationDelegate*) override {}
  Result<std::unique_ptr<MainWindow>> makeMainWindow(MainWindow::Delegate&) override {
    return WindowSystemError::noDisplay;
  }
};

std::unique_ptr<QtWindowSystem> makeWindowSystem(LinuxPlatform::Windows windows, LinuxDispatch& dispatch,
                                                 SystemLog& log) {
  if (windows == LinuxPlatform::Windows::none || !X11Connection::open({})) return nullptr;
  return std::make_unique<QtWindowSystem>(log,
                                          QtWindowSystem::Options{.mainDescriptor = dispatch.mainDescriptor(),
                                                                  .drainMain = [&dispatch] { dispatch.drainMain(); }});
}

}  // namespace

struct LinuxPlatform::Parts {
  Parts(DiagnosticLines diagnosticLines, Windows windows)
      : standardError(STDERR_FILENO),
        log(makeSystemLog(standardError)),
        lines(makeLines(diagnosticLines, *log)),
        places(xdgPlaces()),
        userDefaults(dispatch, files, *log, joined(joined(places.preferences, bundleIdentifier), "defaults.json")),
        sounds(pulse),
        captureDevices(pulse),
        screenCapture(dispatch, sounds, *log),
        qt(makeWindowSystem(windows, dispatch, *log)),
        userNotifications(dispatch, sessionBusAddress()),
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
  FfmpegAudioExporter audioExporter;
  ProcMemory processMemory;
  std::unique_ptr<QtWindowSystem> qt;
  NoWindowSystem noWindows;
  DBusUserNotifications userNotifications;
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
                    .audioExporter = audioExporter,
                    .windowSystem = qt ? static_cast<WindowSystem&>(*qt) : noWindows,
                    .userNotifications = userNotifications,
                    .network = network,
                    .processMemory = processMemory};
};

LinuxPlatform::LinuxPlatform(DiagnosticLines lines, Windows windows)
    : parts_(std::make_unique<Parts>(lines, windows)) {}
LinuxPlatform::~LinuxPlatform() = default;

Platform& LinuxPlatform::platform() { return parts_->platform; }

void LinuxPlatform::run() {
  if (parts_->qt) return parts_->qt->run();
  parts_->dispatch.runMain();
}

void LinuxPlatform::stop() {
  if (parts_->qt) return parts_->qt->stop();
  parts_->dispatch.stopMain();
}

void LinuxPlatform::onDesktopEnd(std::function<void()> ended) {
  if (parts_->qt) parts_->qt->onEnd(std::move(ended));
}

}  // namespace quillbeam
