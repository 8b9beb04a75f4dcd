#include "cli/CommandWorld.h"

#include "base/TaskScope.h"
#include "cli/Messages.h"
#include "platform/linux/posix/LinuxDispatch.h"

namespace quillbeam::cli {

CommandWorld::CommandWorld(LinuxPlatform::DiagnosticLines lines, Signals signals)
    : signals_(signals == Signals::areWatched ? std::make_unique<SignalWatcher>() : nullptr), linux_(lines) {}

void CommandWorld::deliverSignals(std::function<void()> received) {
  signals_->deliver(linux_.dispatch().main(), [received = std::move(received)](int) { received(); });
}

ExitCode CommandWorld::run(Task<ExitCode> command) {
  ExitCode code = ExitCode::failed;
  TaskScope tasks(linux_.dispatch().main());
  tasks.start(std::move(command), [&](Result<ExitCode> ended) {
    if (ended) code = *ended;
    if (!ended) complain(ended.error().fullDescription());
    linux_.dispatch().stopMain();
  });
  linux_.dispatch().runMain();
  return code;
}

}  // namespace quillbeam::cli
