#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/ExitCode.h"

namespace quillbeam::cli {

/// One command of the program. The constructor of each adds it, with its options, to the command line.
class Command {
 public:
  explicit Command(CLI::App* commandLine) : commandLine_(commandLine) {}
  virtual ~Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  bool wasGiven() const { return commandLine_->parsed(); }
  virtual ExitCode run() = 0;

 protected:
  CLI::App& commandLine() { return *commandLine_; }

 private:
  CLI::App* commandLine_;
};

std::vector<std::unique_ptr<Command>> addCommands(CLI::App& program);

}  // namespace quillbeam::cli
