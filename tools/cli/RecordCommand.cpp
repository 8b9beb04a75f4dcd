#include "cli/RecordCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "base/Json.h"
#include "cli/Messages.h"
#include "cli/NativeHost.h"
#include "cli/OutputFile.h"

namespace quillbeam::cli {

namespace {

/// What is missing, in the words of the one who can change it.
std::string environmentHint() {
  const char* display = std::getenv("DISPLAY");
  const char* sound = std::getenv("PULSE_SERVER");
  return std::string("DISPLAY is ") + (display ? "\"" + std::string(display) + "\"" : "not set") +
         ", PULSE_SERVER is " + (sound ? "\"" + std::string(sound) + "\"" : "not set");
}

/// A recording that runs already goes on in silence when the sound server dies; one that was asked for with sound and
/// cannot have any from its first second is a mistake that the user wants to hear of.
bool soundServerAnswers(Platform& platform) {
  const auto input = platform.captureDevices.makeInput({});
  return input || !input.error().is(ScreenCaptureError::noSoundServer);
}

std::string resultJson(const RecordingRun::Outcome& outcome) {
  const RecordingFigures& figures = outcome.figures;
  const Value result = ValueMap{{"filePath", outcome.stopReply.at("filePath")},
                                {"durationSeconds", figures.durationSeconds},
                                {"videoFrames", figures.videoFrames},
                                {"droppedFrames", figures.droppedFrames},
                                {"usedNativeUpload", outcome.stopReply.at("usedNativeUpload")},
                                {"nativeUploadFileId", outcome.stopReply.at("nativeUploadFileId")}};
  return toJson(result).value_or("{}");
}

std::string resultText(const RecordingFigures& figures) {
  return "Recorded " + durationText(figures.durationSeconds) + " (" + std::to_string(figures.videoFrames) +
         " frames, " + std::to_string(figures.droppedFrames) + " dropped, " + sizeText(figures.fileBytes) +
         "): " + figures.filePath;
}

std::string soundResultText(const RecordingFigures& figures) {
  return "Recorded " + durationText(figures.durationSeconds) + " (" + sizeText(figures.fileBytes) +
         "): " + figures.filePath;
}

}  // namespace

RecordCommand::RecordCommand(CLI::App& program)
    : Command(program.add_subcommand("record", "Record the screen, or sound alone, until Ctrl-C")),
      service_(commandLine(), "--upload-url") {
  commandLine().add_option("--team", teamId_, "Upload the recording while it runs: the team that will own it");
  commandLine().add_option("--folder", folderId_, "The folder that will hold it")->capture_default_str();
  commandLine().add_option("--name", name_, "Its name there; default: the file's");
  commandLine()
      .add_option("--mode", mode_, "What to record")
      ->check(CLI::IsMember({"screen_with_audio", "screen_with_audio_and_mic", "system_audio_with_mic", "audio_only"}))
      ->capture_default_str();
  commandLine().add_option("--seconds", seconds_, "Stop by itself after this time")->check(CLI::PositiveNumber);
  commandLine().add_option("--output", output_, "The file to write; default: a dated name in the Videos directory");
  commandLine().add_flag("--no-microphone", withoutMicrophone_, "Leave the microphone out");
  commandLine().add_flag("--no-system-audio", withoutSystemAudio_, "Leave out what the computer plays");
  commandLine().add_flag("--json", asJson_, "Print the result as one JSON object");
  commandLine().add_flag("--verbose", verbose_, "Print the system's diagnostic lines on standard error");
}

ExitCode RecordCommand::run() {
  if (teamId_.empty() != folderId_.empty()) {
    complain("to upload the recording, give both --team and --folder");
    return ExitCode::badUsage;
  }
  if (!recordsPictures(mode_) && (withoutMicrophone_ || withoutSystemAudio_)) {
    complain("the mode " + mode_ + " always records the microphone and what the computer plays");
    return ExitCode::badUsage;
  }
  using Lines = LinuxPlatform::DiagnosticLines;
  CommandWorld world(verbose_ ? Lines::standardError : Lines::systemLog, CommandWorld::Signals::areWatched);
  if (output_.empty()) {
    const std::string_view extension = recordsPictures(mode_) ? "mp4" : "m4a";
    output_ = defaultOutputFile(world.platform().places, world.platform().dispatch.now(), extension);
    if (auto made = world.platform().files.createDirectories(world.platform().places.movies); !made) {
      complain(made.error().fullDescription());
      return ExitCode::failed;
    }
  }
  output_ = absolutePath(output_);
  if (world.platform().files.exists(output_)) {
    complain(output_ + ": exists already");
    return ExitCode::failed;
  }
  Interrupts interrupts(world, [this] { giveUp(); });
  return world.run(record(world.platform(), interrupts));
}

Task<ExitCode> RecordCommand::record(Platform& platform, Interrupts& interrupts) {
  CO_TRY(const auto host, co_await NativeHost::find(platform, "record"));
  if (!host->isForeign() && wantsSound() && !soundServerAnswers(platform)) {
    complain(describe(ScreenCaptureError::noSoundServer) + " (" + environmentHint() + ")" +
             (recordsPictures(mode_) ? ". Without sound: --no-microphone --no-system-audio" : ""));
    co_return ExitCode::nothingToCapture;
  }
  auto outcome = co_await recordThrough(platform, interrupts, *host);
  auto ended = co_await host->release();
  if (!outcome) co_return outcome.error();
  if (!ended) complain(ended.error().fullDescription());
  if (outcome->code != ExitCode::ok && host->isForeign()) outcome->complaint += " (" + host->description() + ")";
  report(*outcome);
  co_return outcome->code;
}

Task<RecordingRun::Outcome> RecordCommand::recordThrough(Platform& platform, Interrupts& interrupts,
                                                         const NativeHost& host) {
  CO_TRY(const auto client, NativeClient::connect(platform, host.socketPath()));
  if (upload()) {
    CO_TRY(const auto unconfigured, co_await service_.apply(*client, host));
    if (unconfigured) co_return RecordingRun::Outcome{.code = ExitCode::badUsage, .complaint = *unconfigured};
  }
  RecordingRun recording(platform, *client, interrupts,
                         {.filePath = output_,
                          .mode = mode_,
                          .includeSystemAudio = !withoutSystemAudio_,
                          .includeMicrophone = !withoutMicrophone_,
                          .length = length(),
                          .upload = upload()});
  co_return co_await recording.run();
}

std::optional<RecordingRun::Request::Upload> RecordCommand::upload() const {
  if (teamId_.empty()) return std::nullopt;
  const std::string name = name_.empty() ? std::string(fileName(output_)) : name_;
  return RecordingRun::Request::Upload{.teamId = teamId_, .folderId = folderId_, .fileName = name};
}

std::optional<Duration> RecordCommand::length() const {
  if (!seconds_) return std::nullopt;
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(*seconds_));
}

void RecordCommand::report(const RecordingRun::Outcome& outcome) const {
  const bool hasFile = !outcome.stopReply.at("filePath").isNil();
  if (asJson_ && hasFile) printLine(resultJson(outcome));
  const bool hasPictures = recordsPictures(mode_);
  if (!asJson_ && hasFile) printLine(hasPictures ? resultText(outcome.figures) : soundResultText(outcome.figures));
  if (!outcome.complaint.empty()) complain(outcome.complaint);
  if (outcome.code == ExitCode::nothingToCapture) complain(environmentHint());
}

void RecordCommand::giveUp() const {
  complain(recordsPictures(mode_)
               ? "gave up; the file is complete up to its last second or so. To finish it: quillbeam repair '" +
                     output_ + "'"
               : "gave up; the next `quillbeam record` or `quillbeam serve` finishes " + output_);
  // Nothing may run any more: an orderly end is what was given up.
  _exit(static_cast<int>(ExitCode::gaveUp));
}

}  // namespace quillbeam::cli
