#include "cli/ServeCommand.h"

#include <unistd.h>

#include <chrono>

#include "app/ChannelNames.h"
#include "app/NativeHalf.h"
#include "cli/Messages.h"
#include "cli/NativeClient.h"
#include "cli/NativeHost.h"
#include "cli/OutputFile.h"

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;

/// Long enough to finish any file; a session's end does not wait for ever.
constexpr Duration longestShutDown = 20s;
constexpr int mostAttempts = 30;
constexpr Duration betweenAttempts = 100ms;

[[noreturn]] void endNow(std::string_view why) {
  complain(why);
  _exit(static_cast<int>(ExitCode::failed));
}

}  // namespace

ServeCommand::ServeCommand(CLI::App& program)
    : Command(program.add_subcommand("serve", "Serve UI layers on a socket until SIGTERM")) {
  commandLine().add_option("--socket", socket_, "Where to listen; default: in the user's runtime directory");
}

ExitCode ServeCommand::run() {
  CommandWorld world(LinuxPlatform::DiagnosticLines::standardOutput, CommandWorld::Signals::areWatched,
                     LinuxPlatform::Windows::onTheDisplay);
  Interrupts interrupts(world, [] { endNow("stopped at once; a recording that ran is repaired at the next start"); });
  return world.run(serve(world, interrupts));
}

Task<ExitCode> ServeCommand::reopen(Platform& platform, RunningNativeHalf running) {
  const std::string who = describe(running);
  auto client = NativeClient::connect(platform, running.socketPath);
  if (client) {
    const auto shown = co_await (*client)->ask(channel_names::application, "reopen");
    if (shown && shown->asBool().value_or(false)) {
      complain(who + "; its window is in front now");
      co_return ExitCode::ok;
    }
  }
  complain(who);
  co_return ExitCode::failed;
}

Task<ExitCode> ServeCommand::serve(CommandWorld& world, Interrupts& interrupts) {
  Platform& platform = world.platform();
  const Path socketPath = socket_.empty() ? defaultSocketPath(platform.places) : absolutePath(socket_);
  auto half = NativeHalf::create(platform, {"serve", socketPath});
  for (int attempt = 1; attempt < mostAttempts && !half && half.error().is(FilesError::locked); ++attempt) {
    const auto running = findRunningNativeHalf(platform.files, platform.places);
    if (running) co_return co_await reopen(platform, *running);
    // A client that looks for a native half holds the lock for a moment.
    CO_TRY_VOID(co_await delay(platform.dispatch.main(), betweenAttempts));
    half = NativeHalf::create(platform, {"serve", socketPath});
  }
  if (!half) co_return half.error();
  CO_TRY_VOID(co_await interrupts.wait());
  const auto bound = platform.dispatch.main().after(longestShutDown, [] { endNow("the orderly end took too long"); });
  CO_TRY_VOID(co_await (*half)->shutDown());
  co_return ExitCode::ok;
}

}  // namespace quillbeam::cli
