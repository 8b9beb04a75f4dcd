#include "cli/ConfigCommand.h"

#include <iostream>

#include "app/ChannelNames.h"
#include "cli/Messages.h"
#include "cli/NativeClient.h"
#include "cli/NativeHost.h"
#include "cli/ServiceOptions.h"

namespace quillbeam::cli {

namespace {

std::string readToken() {
  if (auto token = tokenFromEnvironment()) return *std::move(token);
  std::string line;
  std::getline(std::cin, line);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

bool isServiceAddress(const std::string& url) {
  return isParsableUrl(url) && (url.starts_with("https://") || url.starts_with("http://"));
}

}  // namespace

ConfigCommand::ConfigCommand(CLI::App& program)
    : Command(program.add_subcommand("config", "Which upload service is used")),
      setUpload_(commandLine().add_subcommand(
          "set-upload", std::string("Store the service; its token is read from standard input, or from the variable ") +
                            tokenVariable)),
      clearUpload_(commandLine().add_subcommand("clear-upload", "Forget the service and its token")) {
  setUpload_->add_option("url", url_, "The service's address, such as https://uploads.example")->required();
  commandLine().require_subcommand(1);
}

ExitCode ConfigCommand::run() {
  if (setUpload_->parsed()) return setUpload();
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::endProcess);
  return world.run(configure(world.platform(), "clearNativeApiConfig", {}));
}

ExitCode ConfigCommand::setUpload() {
  while (url_.ends_with('/')) url_.pop_back();
  if (!isServiceAddress(url_)) {
    complain(url_ + ": not an address of the form https://host");
    return ExitCode::badUsage;
  }
  const std::string token = readToken();
  if (token.empty()) {
    complain("no token on standard input");
    return ExitCode::badUsage;
  }
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::endProcess);
  return world.run(
      configure(world.platform(), "configureNativeApiClient", ValueMap{{"baseUrl", url_}, {"authToken", token}}));
}

Task<ExitCode> ConfigCommand::configure(Platform& platform, std::string method, Value arguments) {
  CO_TRY(const auto host, co_await NativeHost::find(platform, "config", ResumeUploads::no));
  CO_TRY(const auto client, NativeClient::connect(platform, host->socketPath()));
  auto configured = co_await client->ask(channel_names::nativeUploadConfig, std::move(method), std::move(arguments));
  CO_TRY_VOID(co_await host->release());
  if (!configured) co_return configured.error();
  co_return ExitCode::ok;
}

}  // namespace quillbeam::cli
