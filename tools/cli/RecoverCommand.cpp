#include "cli/RecoverCommand.h"

#include <chrono>

#include "app/ChannelNames.h"
#include "base/Json.h"
#include "cli/Messages.h"
#include "cli/NativeHost.h"
#include "cli/OutputFile.h"
#include "cli/ProgressLine.h"
#include "cli/UploadsCommand.h"

namespace quillbeam::cli {

namespace {

std::string text(const Value& value) { return value.asString() == nullptr ? std::string() : *value.asString(); }

Date dateOf(const Value& secondsSince1970) {
  const std::chrono::duration<double> seconds(secondsSince1970.asDouble().value_or(0));
  return Date(std::chrono::duration_cast<std::chrono::microseconds>(seconds));
}

}  // namespace

std::string recoveryText(const Value& recording, Date now) {
  return text(recording.at("id")) + "  " + text(recording.at("recordingType")) + "  about " +
         durationText(recording.at("estimatedDuration").asDouble().value_or(0)) + " in " +
         std::to_string(recording.at("segmentCount").asInteger().value_or(0)) + " segments  " +
         ageText(dateOf(recording.at("lastModified")), now) + " old  " + text(recording.at("fileName"));
}

RecoverCommand::RecoverCommand(CLI::App& program)
    : Command(program.add_subcommand("recover", "Recordings whose upload never completed: list, rebuild, remove")) {
  commandLine().add_option("id", id_, "The recording to rebuild, as the list shows it; default: list them");
  commandLine().add_option("--output", output_, "Where the rebuilt file is to be; default: in the data directory");
  commandLine()
      .add_option("--clean", cleanDays_, "Remove those older than so many days, and all but the newest five")
      ->check(CLI::NonNegativeNumber);
  commandLine().add_flag("--json", asJson_, "Print the list as JSON");
}

ExitCode RecoverCommand::run() {
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::endProcess);
  if (!output_.empty()) output_ = absolutePath(output_);
  if (!output_.empty() && world.platform().files.exists(output_)) {
    complain(output_ + ": exists already");
    return ExitCode::failed;
  }
  return world.run(recover(world.platform()));
}

Task<ExitCode> RecoverCommand::recover(Platform& platform) {
  CO_TRY(const auto host, co_await NativeHost::find(platform, "recover", ResumeUploads::no));
  CO_TRY(const auto client, NativeClient::connect(platform, host->socketPath()));
  auto code = co_await act(platform, *client);
  CO_TRY_VOID(co_await host->release());
  co_return code;
}

Task<ExitCode> RecoverCommand::act(Platform& platform, NativeClient& client) {
  if (cleanDays_) {
    const Value arguments = ValueMap{{"days", *cleanDays_}};
    CO_TRY_VOID(co_await client.ask(channel_names::recordingRecovery, "cleanupOldRecordings", arguments));
    co_return ExitCode::ok;
  }
  if (id_.empty()) co_return co_await list(platform, client);
  co_return co_await rebuild(platform, client);
}

Task<ExitCode> RecoverCommand::list(Platform& platform, NativeClient& client) {
  CO_TRY(const auto recordings, co_await client.ask(channel_names::recordingRecovery, "getIncompleteRecordings"));
  if (asJson_) {
    printLine(toJson(recordings).value_or("[]"));
    co_return ExitCode::ok;
  }
  const ValueList none;
  const ValueList& found = recordings.asList() == nullptr ? none : *recordings.asList();
  for (const Value& recording : found) printLine(recoveryText(recording, platform.dispatch.now()));
  if (found.empty()) printLine("No interrupted recordings");
  co_return ExitCode::ok;
}

Task<ExitCode> RecoverCommand::rebuild(Platform& platform, NativeClient& client) {
  const Value arguments = ValueMap{{"recordingId", id_}};
  CO_TRY(const auto recovered, co_await client.ask(channel_names::recordingRecovery, "recoverRecording", arguments));
  if (const std::string* file = recovered.asString()) co_return deliver(platform, *file);
  complain(id_ + ": there is no such recording, or it cannot be rebuilt (the system log says why)");
  co_return ExitCode::failed;
}

ExitCode RecoverCommand::deliver(Platform& platform, const Path& recovered) const {
  if (output_.empty()) {
    printLine("Recovered: " + recovered);
    return ExitCode::ok;
  }
  const auto moved = moveFile(platform.files, recovered, output_);
  if (!moved) {
    complain(moved.error().fullDescription() + "; the recovered file is " + recovered);
    return ExitCode::failed;
  }
  printLine("Recovered: " + output_);
  return ExitCode::ok;
}

}  // namespace quillbeam::cli
