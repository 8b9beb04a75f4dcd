#include "cli/RepairCommand.h"

#include "app/NativeHalf.h"
#include "cli/Messages.h"
#include "cli/OutputFile.h"
#include "cli/ProgressLine.h"

namespace quillbeam::cli {

RepairCommand::RepairCommand(CLI::App& program)
    : Command(program.add_subcommand("repair", "Finish the file of a recording whose process died")) {
  commandLine().add_option("file", file_, "The recording")->required();
}

ExitCode RepairCommand::run() {
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::endProcess);
  const Path file = absolutePath(file_);
  if (isBeingRecorded(world.platform(), file)) {
    complain(file + ": is being recorded right now");
    return ExitCode::failed;
  }
  const auto repaired = world.platform().mediaWriters.repair(file);
  if (!repaired) {
    complain(file + ": " + repaired.error().fullDescription());
    return ExitCode::failed;
  }
  report(file, *repaired);
  return ExitCode::ok;
}

void RepairCommand::report(const Path& file, const RepairReport& report) {
  const std::string duration = durationText(report.duration.seconds());
  if (report.wasComplete) {
    printLine(file + ": complete already (" + duration + "), nothing to repair");
    return;
  }
  printLine(file + ": repaired, " + duration + " long, " + std::to_string(report.bytesDiscarded) +
            " torn bytes discarded");
}

}  // namespace quillbeam::cli
