#include "cli/CommandWorld.h"

#include <signal.h>
#include <unistd.h>

#include "base/TaskScope.h"
#include "cli/Messages.h"

namespace quillbeam::cli {

namespace {

constexpr unsigned longestDestruction = 15;  // seconds

}  // namespace

CommandWorld::CommandWorld(LinuxPlatform::DiagnosticLines lines, Signals signals, LinuxPlatform::Windows windows)
    : signals_(signals == Signals::areWatched ? std::make_unique<SignalWatcher>() : nullptr), linux_(lines, windows) {}

void CommandWorld::deliverSignals(std::function<void(EndWish)> received) {
  DispatchQueue& main = platform().dispatch.main();
  linux_.onDesktopEnd([&main, received] { main.async([received] { received(EndWish::terminate); }); });
  signals_->deliver(main, [received = std::move(received)](int signal) {
    received(signal == SIGINT ? EndWish::interrupt : EndWish::terminate);
  });
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
  // Only destructors are left; something that does not answer must not keep the process for ever.
  ::alarm(longestDestruction);
  return code;
}

}  // namespace quillbeam::cli
