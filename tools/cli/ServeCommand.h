#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"
#include "platform/Files.h"

namespace quillbeam::cli {

/// `quillbeam serve`: runs the native half for UI layers until SIGTERM or SIGINT.
class ServeCommand final : public Command {
 public:
  explicit ServeCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> serve(CommandWorld& world, Interrupts& interrupts);

  std::string socket_;
};

}  // namespace quillbeam::cli
