#include "cli/CallCommand.h"

#include <cstdio>

#include "base/Json.h"
#include "cli/ClientSocket.h"
#include "cli/Messages.h"
#include "cli/NativeClient.h"

namespace quillbeam::cli {

namespace {

std::string jsonText(const Value& value) {
  auto text = toJson(value);
  return text ? *text : "null";
}

}  // namespace

CallCommand::CallCommand(CLI::App& program)
    : Command(program.add_subcommand("call", "Call a method of a running native half and print its reply")) {
  commandLine().add_option("channel", channel_, "The channel's name")->required();
  commandLine().add_option("method", method_, "The method's name")->required();
  commandLine().add_option("arguments", arguments_, "The arguments, as any JSON value");
  commandLine().add_option("--socket", socket_, "Where the native half listens");
}

ExitCode CallCommand::run() {
  Value arguments;
  if (!arguments_.empty()) {
    auto parsed = parseJson(arguments_);
    if (!parsed) {
      complain(parsed.error().fullDescription());
      return ExitCode::badUsage;
    }
    arguments = std::move(*parsed);
  }
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::endProcess);
  return world.run(call(world, std::move(arguments)));
}

Task<ExitCode> CallCommand::call(CommandWorld& world, Value arguments) {
  auto client = NativeClient::connect(world.platform(), clientSocketPath(world.platform(), socket_));
  if (!client) co_return reportUnreachable(client.error());
  CO_TRY(const auto reply, co_await (*client)->call(channel_, method_, std::move(arguments)));
  co_return report(reply);
}

ExitCode CallCommand::report(const MethodReply& reply) {
  if (const auto* error = std::get_if<MethodError>(&reply)) {
    const Value map = ValueMap{{"code", error->code}, {"message", error->message}, {"details", error->details}};
    std::fprintf(stderr, "%s\n", jsonText(map).c_str());
    return ExitCode::callFailed;
  }
  if (std::holds_alternative<NotImplemented>(reply)) {
    complain("not implemented");
    return ExitCode::notImplemented;
  }
  printLine(jsonText(std::get<Value>(reply)));
  return ExitCode::ok;
}

}  // namespace quillbeam::cli
