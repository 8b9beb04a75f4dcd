#include "cli/ListenCommand.h"

#include <algorithm>
#include <list>

#include "app/ChannelNames.h"
#include "cli/ChannelPrinter.h"
#include "cli/ClientSocket.h"
#include "cli/Interrupts.h"
#include "cli/Messages.h"
#include "cli/NativeClient.h"

namespace quillbeam::cli {

namespace {

ChannelPrinter::Direction directionOf(std::string_view channel) {
  const bool known = std::ranges::find(channel_names::outgoing, channel) != channel_names::outgoing.end();
  return known ? ChannelPrinter::Direction::callsFromNative : ChannelPrinter::Direction::unknown;
}

}  // namespace

ListenCommand::ListenCommand(CLI::App& program)
    : Command(program.add_subcommand("listen", "Print the calls and events that the native half sends")) {
  commandLine().add_option("channels", channels_, "The channels' names; default: all that send");
  commandLine().add_option("--socket", socket_, "Where the native half listens");
}

ExitCode ListenCommand::run() {
  if (channels_.empty()) channels_.assign(channel_names::outgoing.begin(), channel_names::outgoing.end());
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::areWatched);
  Interrupts interrupts(world, [] {});
  return world.run(listen(world, interrupts));
}

Task<ExitCode> ListenCommand::listen(CommandWorld& world, Interrupts& interrupts) {
  auto client = NativeClient::connect(world.platform(), clientSocketPath(world.platform(), socket_));
  if (!client) co_return reportUnreachable(client.error());
  std::optional<Error> ended;
  std::list<ChannelPrinter> printers;
  for (const std::string& channel : channels_) {
    printers.emplace_back((*client)->messenger(), channel, directionOf(channel), [&](Error why) {
      ended = std::move(why);
      interrupts.endWaiting();
    });
  }
  CO_TRY_VOID(co_await interrupts.wait());
  if (!ended || !ended->is(MessengerError::peerGone)) co_return ExitCode::ok;
  complain(ended->description());
  co_return ExitCode::nobodyListens;
}

}  // namespace quillbeam::cli
