#include "cli/UploadCommand.h"

#include <unistd.h>

#include <array>

#include "base/Json.h"
#include "cli/Messages.h"
#include "cli/OutputFile.h"

namespace quillbeam::cli {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 8> contentTypes = {{{"mp4", "video/mp4"},
                                                                                        {"m4v", "video/mp4"},
                                                                                        {"m4a", "audio/mp4"},
                                                                                        {"mov", "video/quicktime"},
                                                                                        {"mkv", "video/x-matroska"},
                                                                                        {"webm", "video/webm"},
                                                                                        {"mp3", "audio/mpeg"},
                                                                                        {"wav", "audio/wav"}}};

[[noreturn]] void endNow() {
  complain("gave up at once; see `quillbeam uploads` for what is left");
  _exit(static_cast<int>(ExitCode::gaveUp));
}

}  // namespace

std::string contentTypeOf(const Path& file) {
  for (const auto& [extension, type] : contentTypes) {
    if (fileExtension(file) == extension) return std::string(type);
  }
  return "application/octet-stream";
}

UploadCommand::UploadCommand(CLI::App& program)
    : Command(program.add_subcommand("upload", "Upload a file")), service_(commandLine()) {
  commandLine().add_option("file", file_, "The file")->required();
  commandLine().add_option("--team", teamId_, "The team that will own it")->required();
  commandLine().add_option("--folder", folderId_, "The folder that will hold it")->required();
  commandLine().add_option("--name", name_, "Its name there; default: as it is called here");
  commandLine().add_option("--content-type", contentType_, "Its media type; default: by its extension");
  commandLine().add_flag("--json", asJson_, "Print the result as one JSON object");
}

ExitCode UploadCommand::run() {
  CommandWorld world(LinuxPlatform::DiagnosticLines::systemLog, CommandWorld::Signals::areWatched);
  file_ = absolutePath(file_);
  const auto info = world.platform().files.info(file_);
  if (!info) {
    complain(info.error().fullDescription());
    return ExitCode::failed;
  }
  Interrupts interrupts(world, endNow);
  return world.run(upload(world.platform(), interrupts));
}

Task<ExitCode> UploadCommand::upload(Platform& platform, Interrupts& interrupts) {
  CO_TRY(const auto host, co_await NativeHost::find(platform, "upload"));
  auto code = co_await uploadThrough(platform, interrupts, *host);
  auto ended = co_await host->release();
  if (!ended) complain(ended.error().fullDescription());
  co_return code;
}

Task<ExitCode> UploadCommand::uploadThrough(Platform& platform, Interrupts& interrupts, const NativeHost& host) {
  CO_TRY(const auto client, NativeClient::connect(platform, host.socketPath()));
  CO_TRY(const auto unconfigured, co_await service_.apply(*client, host));
  if (unconfigured) {
    complain(*unconfigured);
    co_return ExitCode::badUsage;
  }
  UploadRun run(platform, *client, interrupts, request());
  CO_TRY(const auto figures, co_await run.run());
  co_return report(figures, run, host);
}

UploadRun::Request UploadCommand::request() const {
  return {.file = file_,
          .teamId = teamId_,
          .folderId = folderId_,
          .fileName = name_.empty() ? std::string(fileName(file_)) : name_,
          .contentType = contentType_.empty() ? contentTypeOf(file_) : contentType_};
}

ExitCode UploadCommand::report(const UploadFigures& figures, const UploadRun& run, const NativeHost& host) const {
  const bool isComplete = figures.hasEnded() && figures.error.empty();
  if (asJson_) {
    const Value result = ValueMap{{"completed", isComplete},
                                  {"fileId", figures.fileId},
                                  {"sessionId", figures.sessionId},
                                  {"bytes", figures.totalBytes},
                                  {"parts", figures.totalParts},
                                  {"seconds", run.seconds()},
                                  {"error", figures.error.empty() ? Value() : Value(figures.error)}};
    printLine(toJson(result).value_or("{}"));
  } else if (isComplete) {
    printLine("Uploaded " + sizeText(figures.totalBytes) + " in " + durationText(run.seconds()) + " (" +
              std::to_string(figures.totalParts) + " parts, " +
              sizeText(static_cast<std::int64_t>(run.bytesPerSecond())) + "/s): file " + figures.fileId);
  }
  if (isComplete) return ExitCode::ok;
  complain(complaint(figures, host));
  return figures.hasEnded() ? figures.exitCode() : ExitCode::gaveUp;
}

std::string UploadCommand::complaint(const UploadFigures& figures, const NativeHost& host) const {
  const ExitCode code = figures.exitCode();
  if (!figures.hasEnded() && host.isForeign()) return "the upload goes on: " + host.description();
  const std::string remains = std::to_string(figures.confirmedParts) + " of " + std::to_string(figures.totalParts) +
                              " parts are at the service; to go on: quillbeam uploads resume";
  if (!figures.hasEnded()) return "stopped; " + remains;
  if (code == ExitCode::gaveUp) return "stopped; the service was told to forget the upload";
  if (code == ExitCode::uploadTimedOut) return "no byte has moved for two minutes; " + remains;
  return "the upload failed: " + figures.error;
}

}  // namespace quillbeam::cli
