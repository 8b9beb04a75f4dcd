#include "recording/RecordingRepair.h"

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "base/Text.h"
#include "recording/AudioRecordingError.h"
#include "recording/MultiTrackMix.h"

namespace quillbeam {

namespace {

bool isWorthAnotherTry(const Error& error) {
  if (error.is(AssetWriterError::notRecoverable)) return false;
  const Error& cause = error.underlying() != nullptr ? *error.underlying() : error;
  return cause.domain() != posixErrorDomain || cause.code() != ENOENT;
}

/// "talk 2.m4a" for "talk.m4a", or the first number after it that nobody has or waits for.
Path freePathBeside(Files& files, const std::vector<OpenRecording>& waiting, const Path& path) {
  const std::string extension(fileExtension(path));
  const std::string ending = extension.empty() ? "" : "." + extension;
  const std::string stem = path.substr(0, path.size() - ending.size());
  for (int number = 2;; ++number) {
    Path beside = stem + " " + std::to_string(number) + ending;
    const bool isAwaited = std::ranges::find(waiting, beside, &OpenRecording::mixInto) != waiting.end();
    if (!isAwaited && !files.exists(beside)) return beside;
  }
}

}  // namespace

RecordingRepair::RecordingRepair(Platform& platform, RecordingJournal& journal)
    : platform_(platform),
      journal_(journal),
      queue_(platform.dispatch.makeSerialQueue("io.quillbeam.app.recording-repair")) {}

Task<void> RecordingRepair::run() {
  const std::vector<OpenRecording> recordings = journal_.openRecordings();
  for (const OpenRecording& recording : recordings) {
    std::ignore = co_await repair(recording);
  }
  co_return success;
}

Task<void> RecordingRepair::repair(OpenRecording recording) {
  StandardOutput& out = platform_.standardOutput;
  MediaWriters& writers = platform_.mediaWriters;
  const Path path = recording.filePath;
  const auto repairFile = [&writers, path] { return writers.repair(path); };
  const auto report = co_await runOn<RepairReport>(*queue_, repairFile);
  if (report) {
    out.print("✅ RecordingRepair: Recovered " + path + " (" + decimal(report->duration.seconds()) + "s, " +
              std::to_string(report->bytesDiscarded) + " torn bytes discarded)");
  } else {
    out.print("⚠️ RecordingRepair: Could not recover " + path + ": " + report.error().fullDescription());
  }
  if (report && recording.mixInto) co_return co_await mix(std::move(recording));
  // Tracks that hold nothing are nobody's file.
  if (!report && recording.mixInto && report.error().is(AssetWriterError::notRecoverable)) {
    std::ignore = platform_.files.remove(path);
  }
  if (report || !isWorthAnotherTry(report.error())) journal_.close(recording.id);
  co_return success;
}

Task<void> RecordingRepair::mix(OpenRecording recording) {
  CO_TRY(const Path output, choosePlace(recording));
  MultiTrackMix tracks(platform_, recording.filePath, output);
  const auto mixed = co_await tracks.run();
  if (mixed) platform_.standardOutput.print("✅ RecordingRepair: Mixed into " + output);
  if (!mixed) mixFailed(recording, output, mixed.error());
  if (mixed || !MultiTrackMix::isWorthAnotherTry(mixed.error())) journal_.close(recording.id);
  co_return success;
}

void RecordingRepair::mixFailed(const OpenRecording& recording, const Path& output, const Error& cause) {
  const Path& tracks = recording.filePath;
  if (cause.is(AudioRecordingError::nothingRecorded)) std::ignore = platform_.files.remove(tracks);
  const std::string kept = platform_.files.exists(tracks) ? "; both tracks are kept in " + tracks : "";
  platform_.standardOutput.print("⚠️ RecordingRepair: Could not mix into " + output + ": " + cause.fullDescription() +
                                 kept);
}

Result<Path> RecordingRepair::choosePlace(const OpenRecording& recording) {
  StandardOutput& out = platform_.standardOutput;
  const Path& wanted = *recording.mixInto;
  if (!platform_.files.exists(wanted)) return wanted;
  const Path beside = freePathBeside(platform_.files, journal_.openRecordings(), wanted);
  // On record before the mix begins: nobody may start a recording into this name meanwhile.
  if (auto redirected = journal_.redirect(recording, beside); !redirected) {
    out.print("⚠️ RecordingRepair: There is a file already: " + wanted + "; both tracks are kept in " +
              recording.filePath + " until the next launch: " + redirected.error().fullDescription());
    return redirected.error();
  }
  out.print("⚠️ RecordingRepair: There is a file already: " + wanted + "; mixing into " + beside);
  return beside;
}

}  // namespace quillbeam
