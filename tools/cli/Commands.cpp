#include "cli/CallCommand.h"
#include "cli/Command.h"
#include "cli/ConfigCommand.h"
#include "cli/ListenCommand.h"
#include "cli/RecordCommand.h"
#include "cli/RecoverCommand.h"
#include "cli/RepairCommand.h"
#include "cli/ServeCommand.h"
#include "cli/UploadCommand.h"
#include "cli/UploadsCommand.h"

namespace quillbeam::cli {

std::vector<std::unique_ptr<Command>> addCommands(CLI::App& program) {
  program.set_version_flag("--version", "quillbeam " QUILLBEAM_VERSION);
  program.require_subcommand(1);
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(std::make_unique<RecordCommand>(program));
  commands.push_back(std::make_unique<ServeCommand>(program));
  commands.push_back(std::make_unique<CallCommand>(program));
  commands.push_back(std::make_unique<ListenCommand>(program));
  commands.push_back(std::make_unique<RepairCommand>(program));
  commands.push_back(std::make_unique<RecoverCommand>(program));
  commands.push_back(std::make_unique<UploadCommand>(program));
  commands.push_back(std::make_unique<UploadsCommand>(program));
  commands.push_back(std::make_unique<ConfigCommand>(program));
  return commands;
}

}  // namespace quillbeam::cli
