#include "recording/RecordingRepair.h"

#include <cerrno>
#include <tuple>

#include "base/Text.h"
#include "recording/MultiTrackMix.h"

namespace quillbeam {

namespace {

bool isWorthAnotherTry(const Error& error) {
  if (error.is(AssetWriterError::notRecoverable)) return false;
  const Error& cause = error.underlying() != nullptr ? *error.underlying() : error;
  return cause.domain() != posixErrorDomain || cause.code() != ENOENT;
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
  StandardOutput& out = platform_.standardOutput;
  const Path output = *recording.mixInto;
  const std::string kept = "; both tracks are kept in " + recording.filePath;
  if (platform_.files.exists(output)) {
    out.print("⚠️ RecordingRepair: There is a file already: " + output + kept);
    journal_.close(recording.id);
    co_return success;
  }
  MultiTrackMix tracks(platform_, recording.filePath, output);
  const auto mixed = co_await tracks.run();
  out.print(mixed ? "✅ RecordingRepair: Mixed into " + output
                  : "⚠️ RecordingRepair: Could not mix into " + output + ": " + mixed.error().fullDescription() + kept);
  if (mixed || !MultiTrackMix::isWorthAnotherTry(mixed.error())) journal_.close(recording.id);
  co_return success;
}

}  // namespace quillbeam
