#include "cli/CommandWorld.h"

#include "base/TaskScope.h"
#include "cli/Messages.h"

namespace quillbeam::cli {

CommandWorld::CommandWorld(LinuxPlatform::DiagnosticLines lines, Signals signals, LinuxPlatform::Windows windows)
    : signals_(signals == Signals::areWatched ? std::make_unique<SignalWatcher>() : nullptr), linux_(lines, windows) {}

void CommandWorld::deliverSignals(std::function<void()> received) {
  DispatchQueue& main = platform().dispatch.main();
  linux_.onDesktopEnd([&main, received] { main.async(received); });
  signals_->deliver(main, [received = std::move(received)](int) { received(); });
}

ExitCode CommandWorld::run(Task<ExitCode> command) {
  ExitCode code = ExitCode::failed;
  TaskScope tasks(platform().dispatch.main());
  tasks.start(std::move(command), [&](Result<ExitCode> ended) {
    if (ended) code = *ended;
    if (!ended) complain(ended.error().fullDescription());
    linux_.stop();
  });
  linux_.run();
  return code;
}

}  // namespace quillbeam::cli
