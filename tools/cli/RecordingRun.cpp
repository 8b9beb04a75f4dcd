#include "cli/RecordingRun.h"

#include <algorithm>
#include <chrono>

#include "app/ChannelNames.h"
#include "platform/capture/ScreenCapture.h"

namespace quillbeam::cli {

namespace {

using namespace std::chrono_literals;

constexpr Duration betweenLooks = 250ms;

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
  CO_TRY_VOID(co_await client_.ask(channel_names::screenCapture, "selectScreenCaptureContent"));
  const Value config = ValueMap{{"recordingMode", request_.mode},
                                {"includeSystemAudio", request_.includeSystemAudio},
                                {"includeMicrophone", request_.includeMicrophone}};
  const Value arguments = ValueMap{{"filePath", request_.filePath}, {"config", config}};
  CO_TRY_VOID(co_await client_.ask(channel_names::macRecorder, "startMacRecording", arguments));
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
    progress_.show(progressText(figures_, std::chrono::duration<double>(elapsed).count()));
    if (request_.length && elapsed >= *request_.length) break;
    const Duration pause = request_.length ? std::min(betweenLooks, *request_.length - elapsed) : betweenLooks;
    CO_TRY_VOID(co_await interrupts_.wait(pause));
  }
  co_return success;
}

Task<void> RecordingRun::readFigures() {
  CO_TRY(const auto statistics, co_await client_.ask(channel_names::recordingStatistics, "getRecordingStatistics"));
  figures_ = RecordingFigures::fromValue(statistics);
  co_return success;
}

Task<RecordingRun::Outcome> RecordingRun::stop() {
  progress_.show("Finishing the file …");
  CO_TRY(auto reply, co_await client_.ask(channel_names::macRecorder, "stopMacRecording"));
  CO_TRY_VOID(co_await readFigures());
  Outcome outcome{.code = ExitCode::ok, .figures = figures_, .stopReply = std::move(reply)};
  if (!figures_.problem.empty()) {
    outcome.code = ExitCode::failed;
    outcome.complaint = "the recording ended early: " + figures_.problem +
                        ". What was recorded until then is kept in " + request_.filePath;
  }
  co_return outcome;
}

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
