#pragma once

#include <string>

#include "channels/MethodCall.h"
#include "cli/Command.h"
#include "cli/CommandWorld.h"

namespace quillbeam::cli {

/// `quillbeam call`: one call on one channel, its reply as JSON.
class CallCommand final : public Command {
 public:
  explicit CallCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> call(CommandWorld& world, Value arguments);
  static ExitCode report(const MethodReply& reply);

  std::string channel_;
  std::string method_;
  std::string arguments_;
  std::string socket_;
};

}  // namespace quillbeam::cli
