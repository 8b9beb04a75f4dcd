#pragma once

#include <string>

#include "cli/Command.h"
#include "cli/CommandWorld.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam::cli {

/// `quillbeam repair`: finishes a recording that a dead process left behind.
class RepairCommand final : public Command {
 public:
  explicit RepairCommand(CLI::App& program);
  ExitCode run() override;

 private:
  static void report(const Path& file, const RepairReport& report);

  std::string file_;
};

}  // namespace quillbeam::cli
