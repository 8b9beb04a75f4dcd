#include "cli/RecordingRun.h"

#include <algorithm>
#include <chrono>

#include "app/ChannelNames.h"
#include "base/TaskScope.h"
#include "platform/capture/ScreenCapture.h"
#include "upload/MacBackgroundUploadError.h"

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;

constexpr Duration betweenLooks = 250ms;
constexpr int mostIdleLooks = 240;

ExitCode uploadExitCode(const Error& error) {
  if (error.is(CommonError::cancelled)) return ExitCode::gaveUp;
  if (error.is(MacBackgroundUploadError::finalizationTimeout)) return ExitCode::uploadTimedOut;
  return error.description().contains("Network error") ? ExitCode::serviceUnreachable : ExitCode::uploadRefused;
}

/// Errors that come over a channel are known by their text alone.
bool meansNothingToCapture(const Error& error) {
  const auto& text = error.description();
  return text.starts_with(describe(ScreenCaptureError::noDisplayServer)) ||
         text.starts_with(describe(ScreenCaptureError::noSoundServer)) || text == "No display found for recording";
}

}  // namespace

Task<RecordingRun::Outcome> RecordingRun::run() {
  auto started = co_await start();
  if (!started) co_return co_await failedToStart(started.error());
  auto watched = co_await watch();
  progress_.clear();
  if (!watched) co_return failed(watched.error());
  auto outcome = co_await stop();
  progress_.clear();
  if (!outcome) co_return failed(outcome.error());
  co_return outcome;
}

Task<void> RecordingRun::start() {
  if (recordsPictures(request_.mode)) {
    CO_TRY_VOID(co_await client_.ask(channel_names::screenCapture, "selectScreenCaptureContent"));
  }
  const Value config = ValueMap{{"recordingMode", request_.mode},
                                {"includeSystemAudio", request_.includeSystemAudio},
                                {"includeMicrophone", request_.includeMicrophone}};
  ValueMap arguments{{"filePath", request_.filePath}, {"config", config}};
  if (request_.upload) {
    arguments.set("teamId", request_.upload->teamId);
    arguments.set("folderId", request_.upload->folderId);
    arguments.set("fileName", request_.upload->fileName);
  }
  CO_TRY_VOID(co_await client_.ask(channel_names::macRecorder, "startMacRecording", std::move(arguments)));
  startedAt_ = platform_.dispatch.hostTime();
  co_return success;
}

Task<void> RecordingRun::watch() {
  while (!interrupts_.haveArrived()) {
    CO_TRY_VOID(co_await readFigures());
    if (!figures_.problem.empty()) break;
    CO_TRY(const auto status, co_await client_.ask(channel_names::macRecorder, "getMacRecordingStatus"));
    // Another client may have stopped it.
    if (status.at("isRecording").asBool() == false) break;
    const Duration elapsed = (platform_.dispatch.hostTime() - startedAt_).toNanoseconds();
    CO_TRY_VOID(co_await readUpload());
    progress_.show(runningText(std::chrono::duration<double>(elapsed).count()));
    if (request_.length && elapsed >= *request_.length) break;
    const Duration pause = request_.length ? std::min(betweenLooks, *request_.length - elapsed) : betweenLooks;
    CO_TRY_VOID(co_await interrupts_.wait(pause));
  }
  co_return success;
}

std::string RecordingRun::runningText(double elapsedSeconds) const {
  const std::string text = recordsPictures(request_.mode) ? progressText(figures_, elapsedSeconds)
                                                          : soundProgressText(figures_, elapsedSeconds);
  return request_.upload ? text + "  " + transferText(transfer_) : text;
}

Task<void> RecordingRun::readFigures() {
  CO_TRY(const auto statistics, co_await client_.ask(channel_names::recordingStatistics, "getRecordingStatistics"));
  figures_ = RecordingFigures::fromValue(statistics);
  co_return success;
}

Task<void> RecordingRun::readUpload() {
  if (!request_.upload) co_return success;
  CO_TRY(const auto transfers, co_await client_.ask(channel_names::fileUpload, "getUploadTransfers"));
  transfer_ = UploadTransfer::currentOf(transfers);
  co_return success;
}

Task<RecordingRun::Outcome> RecordingRun::stop() {
  progress_.show("Finishing the file …");
  auto reply = co_await awaitStop();
  CO_TRY_VOID(co_await readFigures());
  const bool wasLeft = !reply && reply.error().is(CommonError::cancelled);
  if (!reply && !hasFile() && !wasLeft) co_return whyNoFile(reply.error());
  Outcome outcome{.code = ExitCode::ok, .figures = figures_, .stopReply = reply.value_or(Value())};
  if (!reply) {
    ValueMap known{{"usedNativeUpload", true}};
    if (hasFile()) known.set("filePath", request_.filePath);
    outcome.stopReply = std::move(known);
    outcome.code = uploadExitCode(reply.error());
    outcome.complaint = reply.error().description();
  } else if (!figures_.uploadProblem.empty()) {
    outcome.code = ExitCode::uploadRefused;
    outcome.complaint = "the service has a file, but not all of the recording: " + figures_.uploadProblem +
                        "; the recording itself is complete. To upload it: quillbeam upload '" + request_.filePath +
                        "'";
  }
  if (!figures_.problem.empty()) {
    outcome.code = ExitCode::failed;
    const bool isToBeMixed = wasLeft && !hasFile();
    outcome.complaint = "the recording ended early: " + figures_.problem +
                        (isToBeMixed ? remedy() : ". What was recorded until then is kept in " + request_.filePath);
  }
  co_return outcome;
}

/// The answer comes when the file is finished and, for one that is uploaded, when the service has it too.
Task<Value> RecordingRun::awaitStop() {
  std::optional<Result<Value>> reply;
  TaskScope tasks(platform_.dispatch.main());
  tasks.start(client_.ask(channel_names::macRecorder, "stopMacRecording"), [&](Result<Value> answer) {
    reply.emplace(std::move(answer));
    interrupts_.endWaiting();
  });
  auto stage = StopStage::file;
  while (!reply) {
    if (stage == StopStage::upload && interrupts_.haveArrived()) co_return stoppedWaiting();
    CO_TRY(const auto now, co_await showStopStage());
    // A signal that ended the recording must not end the upload as well.
    if (now == StopStage::upload && std::exchange(stage, now) != now) interrupts_.forget();
    stage = now;
    const bool mayBeLeft = stage == StopStage::upload;
    auto pause = mayBeLeft ? interrupts_.wait(betweenLooks) : delay(platform_.dispatch.main(), betweenLooks);
    CO_TRY_VOID(co_await std::move(pause));
  }
  CO_TRY_VOID(co_await readFigures());
  if (!*reply && !figures_.fileIsComplete) co_return reply->error();
  if (!*reply && reply->error().description() == describe(MacBackgroundUploadError::finalizationTimeout)) {
    co_return co_await watchUpload();
  }
  // What went wrong first says more than what could not be done any more in the end.
  if (!*reply && !figures_.uploadProblem.empty()) co_return uploadFailed(figures_.uploadProblem);
  if (!*reply) co_return uploadFailed(reply->error().description());
  co_return *std::move(reply);
}

/// A file of pictures is finished before its upload; of sound, the upload comes first, and its native half finishes and
/// mixes the tracks even when nobody waits for that.
Task<RecordingRun::StopStage> RecordingRun::showStopStage() {
  CO_TRY_VOID(co_await readFigures());
  CO_TRY_VOID(co_await readUpload());
  CO_TRY(const auto status, co_await client_.ask(channel_names::macRecorder, "getMacRecordingStatus"));
  if (status.at("isPostProcessing").asBool().value_or(false)) {
    progress_.show(mixText(status.at("postProcessingProgress").asDouble().value_or(0)));
    co_return StopStage::mix;
  }
  const bool uploadsFirst = !recordsPictures(request_.mode);
  if (!request_.upload || (!figures_.fileIsComplete && !uploadsFirst)) co_return StopStage::file;
  progress_.show("Finishing the upload: " + transferText(transfer_) + " …");
  co_return StopStage::upload;
}

/// The reply carries the error's own text; the figures know the reason below it, and where the tracks are.
Error RecordingRun::whyNoFile(const Error& error) const {
  if (figures_.filePath != request_.filePath || figures_.problem.empty()) return error;
  return Error(error.domain(), error.code(), figures_.problem);
}

/// Nobody waits for the upload any more, but bytes may still move.
Task<Value> RecordingRun::watchUpload() {
  std::int64_t moved = -1;
  for (int idleLooks = 0; idleLooks < mostIdleLooks; ++idleLooks) {
    CO_TRY_VOID(co_await readUpload());
    if (!transfer_.exists()) co_return Value(ValueMap{{"filePath", request_.filePath}, {"usedNativeUpload", true}});
    if (interrupts_.haveArrived()) co_return stoppedWaiting();
    if (transfer_.bytesMoved() != std::exchange(moved, transfer_.bytesMoved())) idleLooks = 0;
    progress_.show("Finishing the upload: " + transferText(transfer_) + " …");
    CO_TRY_VOID(co_await interrupts_.wait(betweenLooks));
  }
  co_return Error(MacBackgroundUploadError::finalizationTimeout).withDescription("the upload stands still" + remedy());
}

Error RecordingRun::uploadFailed(const std::string& why) const {
  return Error("MethodError", 0, "the upload failed: " + why + remedy());
}

Error RecordingRun::stoppedWaiting() const {
  return Error(CommonError::cancelled)
      .withDescription("the upload is not complete (" + transferText(transfer_) + ")" + remedy());
}

std::string RecordingRun::remedy() const {
  if (!hasFile()) {
    return "; the recording itself is mixed into '" + request_.filePath +
           "' by the running `quillbeam serve`, or at the latest by the next start. To go on with the upload: "
           "quillbeam uploads resume";
  }
  return "; the recording itself is. To go on: quillbeam uploads resume, or quillbeam upload '" + request_.filePath +
         "'";
}

bool RecordingRun::hasFile() const { return figures_.fileIsComplete && figures_.filePath == request_.filePath; }

Task<RecordingRun::Outcome> RecordingRun::failedToStart(Error error) {
  Outcome outcome = failed(error);
  // The reply carries the error's own text; the figures know the reason below it.
  const auto read = co_await readFigures();
  const bool isOurs = read && figures_.filePath == request_.filePath;
  if (isOurs && !figures_.problem.empty()) outcome.complaint = figures_.problem;
  co_return outcome;
}

RecordingRun::Outcome RecordingRun::failed(const Error& error) const {
  const ExitCode code = meansNothingToCapture(error) ? ExitCode::nothingToCapture : ExitCode::failed;
  return {.code = code, .complaint = error.fullDescription(), .figures = figures_, .stopReply = {}};
}

}  // namespace quillbeam::cli
