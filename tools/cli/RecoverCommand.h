#pragma once

#include <optional>
#include <string>

#include "cli/Command.h"
#include "cli/CommandWorld.h"
#include "cli/NativeClient.h"
#include "platform/Files.h"

namespace quillbeam::cli {

/// `quillbeam recover`: recordings whose upload never completed; lists them, rebuilds one into a file, removes old
/// ones.
class RecoverCommand final : public Command {
 public:
  explicit RecoverCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> recover(Platform& platform);
  Task<ExitCode> act(Platform& platform, NativeClient& client);
  Task<ExitCode> list(Platform& platform, NativeClient& client);
  Task<ExitCode> rebuild(Platform& platform, NativeClient& client);
  ExitCode deliver(Platform& platform, const Path& recovered) const;

  std::string id_;
  std::string output_;
  std::optional<int> cleanDays_;
  bool asJson_ = false;
};

/// One line of the list; `recording` is a map of the recovery channel.
std::string recoveryText(const Value& recording, Date now);

}  // namespace quillbeam::cli
