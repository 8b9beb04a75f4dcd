#pragma once

#include <functional>
#include <memory>

#include "base/Task.h"
#include "cli/ExitCode.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/posix/SignalWatcher.h"

namespace quillbeam::cli {

/// What a command stands on: the platform and its main loop. Made on the main thread.
class CommandWorld {
 public:
  /// What SIGINT, SIGTERM and SIGHUP do: end the process, or wait for `Interrupts`.
  enum class Signals { endProcess, areWatched };

  CommandWorld(LinuxPlatform::DiagnosticLines lines, Signals signals,
               LinuxPlatform::Windows windows = LinuxPlatform::Windows::none);

  Platform& platform() { return linux_.platform(); }
  /// The user's Ctrl-C (SIGINT); or the system's wish: SIGTERM, SIGHUP, the end of the session or of its display, which
  /// come together when a user logs out.
  enum class EndWish { interrupt, terminate };
  /// For `Signals::areWatched`, once: `received` runs on the main queue.
  void deliverSignals(std::function<void(EndWish)> received);

  /// Drives the main loop until the command has ended. An error is told to the user and means `failed`.
  ExitCode run(Task<ExitCode> command);

 private:
  std::unique_ptr<SignalWatcher> signals_;  // first: the threads of the platform inherit that signals are blocked
  LinuxPlatform linux_;
};

}  // namespace quillbeam::cli
