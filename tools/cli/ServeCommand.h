#pragma once

#include "app/NativeHalf.h"
#include "cli/Command.h"
#include "cli/Interrupts.h"
#include "platform/Files.h"

namespace quillbeam::cli {

/// `quillbeam serve`: runs the native half for UI layers until SIGTERM or SIGINT, on a display with its window. When
/// one runs already, its window is brought to the front instead.
class ServeCommand final : public Command {
 public:
  explicit ServeCommand(CLI::App& program);
  ExitCode run() override;

 private:
  static Task<ExitCode> reopen(Platform& platform, RunningNativeHalf running);
  Task<ExitCode> serve(CommandWorld& world, Interrupts& interrupts);

  std::string socket_;
};

}  // namespace quillbeam::cli
