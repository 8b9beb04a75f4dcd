#pragma once

#include <string>

#include "cli/Command.h"
#include "cli/CommandWorld.h"

namespace quillbeam::cli {

/// `quillbeam config`: which upload service is used.
class ConfigCommand final : public Command {
 public:
  explicit ConfigCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> configure(Platform& platform, std::string method, Value arguments);
  ExitCode setUpload();

  CLI::App* setUpload_;
  CLI::App* clearUpload_;
  std::string url_;
};

}  // namespace quillbeam::cli
