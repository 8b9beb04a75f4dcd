#pragma once

#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace quillbeam::cli {

/// `quillbeam listen`: prints what the native half sends, a JSON line each, until SIGINT or the native half's end.
class ListenCommand final : public Command {
 public:
  explicit ListenCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> listen(CommandWorld& world, Interrupts& interrupts);

  std::vector<std::string> channels_;
  std::string socket_;
};

}  // namespace quillbeam::cli
