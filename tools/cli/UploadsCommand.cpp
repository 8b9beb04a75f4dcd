#include "cli/UploadsCommand.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "app/ChannelNames.h"
#include "base/Json.h"
#include "cli/Messages.h"
#include "cli/NativeHost.h"
#include "upload/MacNativeUploadSessionStorage.h"

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;
using State = MacUploadSessionState;

constexpr Duration betweenLooks = 300ms;
/// A session that neither transfers nor is being finished for this long waits for something that a person must do.
constexpr int mostIdleLooks = 20;

[[noreturn]] void endNow() {
  complain("gave up at once");
  _exit(static_cast<int>(ExitCode::gaveUp));
}

std::string partsText(const MacNativeUploadSession& session) {
  const std::string expected = session.totalPartsExpected ? std::to_string(*session.totalPartsExpected) : "?";
  std::string text = std::to_string(session.uploadedParts.size()) + "/" + expected + " parts";
  if (session.totalPartsExpected.value_or(0) > 0) {
    text += " (" + std::to_string(100 * session.uploadedParts.size() / *session.totalPartsExpected) + " %)";
  }
  return text;
}

/// What the running uploads do, as far as waiting for them goes.
struct Activity {
  bool isIdle = true;
  std::int64_t bytes = 0;
  std::size_t sessions = 0;
};

Activity activityOf(const Value& transfers, const std::set<std::string>& ignored) {
  Activity activity;
  for (const Value& session : transfers.asList() == nullptr ? ValueList() : *transfers.asList()) {
    const std::string* id = session.at("sessionId").asString();
    if (id == nullptr || ignored.contains(*id)) continue;
    ++activity.sessions;
    activity.bytes += session.at("confirmedBytes").asInteger().value_or(0);
    activity.bytes += session.at("bytesInFlight").asInteger().value_or(0);
    const bool isBeingFinished = *session.at("state").asString() == toText(State::completing);
    if (isBeingFinished || session.at("activeParts").asInteger().value_or(0) > 0) activity.isIdle = false;
  }
  return activity;
}

}  // namespace

std::string ageText(Date then, Date now) {
  const auto seconds = std::max<std::int64_t>(0, std::chrono::duration_cast<std::chrono::seconds>(now - then).count());
  if (seconds < 120) return std::to_string(seconds) + " s";
  if (seconds < 2 * 3600) return std::to_string(seconds / 60) + " min";
  if (seconds < 48 * 3600) return std::to_string(seconds / 3600) + " h";
  return std::to_string(seconds / 86400) + " d";
}

std::string sessionText(const MacNativeUploadSession& session, Date now) {
  std::string line = session.id + "  " + toText(session.state) + "  " + partsText(session) + ", " +
                     sizeText(session.totalBytesUploaded) + "  " + ageText(session.createdAt, now) + " old  " +
                     session.fileName;
  if (session.lastError) line += "  (" + *session.lastError + ")";
  return line;
}

UploadsCommand::UploadsCommand(CLI::App& program)
    : Command(program.add_subcommand("uploads", "List the uploads of this user")),
      resume_(commandLine().add_subcommand("resume", "Go on with uploads that a former process left")),
      abort_(commandLine().add_subcommand("abort", "End an upload and have the service forget it")) {
  commandLine().require_subcommand(0, 1);
  commandLine().add_flag("--json", asJson_, "Print the records as a JSON list");
  abort_->add_option("id", sessionId_, "The session, as the list shows it")->required();
}

ExitCode UploadsCommand::run() {
  using Signals = CommandWorld::Signals;
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog,
                     resume_->parsed() ? Signals::areWatched : Signals::endProcess);
  if (abort_->parsed()) return world.run(abort(world.platform()));
  if (!resume_->parsed()) return list(world.platform());
  Interrupts interrupts(world, endNow);
  return world.run(resume(world.platform(), interrupts));
}

UploadsCommand::Sessions UploadsCommand::load(Platform& platform) {
  return MacNativeUploadSessionStorage(platform).loadAllSessions();
}

ExitCode UploadsCommand::list(Platform& platform) const {
  const Sessions sessions = load(platform);
  if (asJson_) {
    ValueList records;
    for (const auto& session : sessions) records.push_back(toValue(session));
    printLine(toJson(records).value_or("[]"));
    return ExitCode::ok;
  }
  for (const auto& session : sessions) printLine(sessionText(session, platform.dispatch.now()));
  if (sessions.empty()) printLine("No uploads");
  return ExitCode::ok;
}

Task<ExitCode> UploadsCommand::resume(Platform& platform, Interrupts& interrupts) {
  Sessions before = load(platform);
  std::erase_if(before, [](const MacNativeUploadSession& session) { return !session.isIncomplete(); });
  if (before.empty()) {
    printLine("Nothing to resume");
    co_return ExitCode::ok;
  }
  CO_TRY(const auto host, co_await NativeHost::find(platform, "uploads", ResumeUploads::no));
  CO_TRY(const auto client, NativeClient::connect(platform, host->socketPath()));
  CO_TRY(const auto isConfigured, co_await client->ask(channel_names::nativeUploadConfig, "isNativeApiConfigured"));
  auto resumed = Result<void>(success);
  if (isConfigured.asBool() == true) resumed = co_await resumeThrough(platform, interrupts, *client);
  CO_TRY_VOID(co_await host->release());
  if (isConfigured.asBool() != true) {
    complain("no upload service is configured: quillbeam config set-upload URL");
    co_return ExitCode::badUsage;
  }
  if (!resumed) co_return resumed.error();
  co_return reportResumed(platform, before);
}

Task<void> UploadsCommand::resumeThrough(Platform& platform, Interrupts& interrupts, NativeClient& client) {
  // Whether the service has finished these, only it knows: nothing moves for them any more.
  std::set<std::string> ignored;
  for (const auto& session : load(platform)) {
    if (session.state == State::completing) ignored.insert(session.id);
  }
  CO_TRY_VOID(co_await client.ask(channel_names::nativeUploadConfig, "resumeIncompleteUploads"));
  ProgressLine progress;
  std::int64_t moved = 0;
  for (int idleLooks = 0; idleLooks < mostIdleLooks && !interrupts.haveArrived(); ++idleLooks) {
    CO_TRY(const auto transfers, co_await client.ask(channel_names::fileUpload, "getUploadTransfers"));
    const Activity activity = activityOf(transfers, ignored);
    if (activity.sessions == 0) break;
    if (!activity.isIdle || activity.bytes != std::exchange(moved, activity.bytes)) idleLooks = 0;
    progress.show(std::to_string(activity.sessions) + " upload(s), " + sizeText(activity.bytes) + " at the service");
    CO_TRY_VOID(co_await interrupts.wait(betweenLooks));
  }
  co_return success;
}

ExitCode UploadsCommand::reportResumed(Platform& platform, const Sessions& before) const {
  bool allCompleted = true;
  const Sessions after = load(platform);
  for (const auto& session : before) {
    const auto now = std::ranges::find(after, session.id, &MacNativeUploadSession::id);
    if (now == after.end()) continue;
    printLine(sessionText(*now, platform.dispatch.now()));
    if (now->state != State::completed) allCompleted = false;
  }
  return allCompleted ? ExitCode::ok : ExitCode::failed;
}

Task<ExitCode> UploadsCommand::abort(Platform& platform) {
  CO_TRY(const auto host, co_await NativeHost::find(platform, "uploads", ResumeUploads::no));
  CO_TRY(const auto client, NativeClient::connect(platform, host->socketPath()));
  const Value arguments = ValueMap{{"sessionId", sessionId_}};
  auto aborted = co_await client->ask(channel_names::fileUpload, "abortUploadSession", arguments);
  CO_TRY_VOID(co_await host->release());
  if (!aborted) {
    complain(sessionId_ + ": " + aborted.error().description());
    co_return ExitCode::failed;
  }
  printLine("Aborted " + sessionId_);
  co_return ExitCode::ok;
}

}  // namespace quillbeam::cli
