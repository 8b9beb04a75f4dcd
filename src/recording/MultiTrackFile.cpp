#include "recording/MultiTrackFile.h"

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "recording/AudioRecordingError.h"
#include "recording/MacRecordingConfig.h"
#include "recording/WriterText.h"

namespace quillbeam {

namespace {

/// Whoever records for an hour wants to hear at its beginning that there is no place for it.
Result<void> checkOutput(Platform& platform, RecordingJournal& journal, const Path& output) {
  const auto existing = platform.files.info(output);
  if (existing && existing->kind == FileKind::directory) return systemError("create " + output, EISDIR);
  const auto interrupted = journal.openRecordings();
  if (std::ranges::find(interrupted, output, &OpenRecording::mixInto) != interrupted.end()) {
    return AssetWriterError::fileExists;
  }
  const std::string name = "." + platform.random.uuid().string() + ".tmp";
  const Path attempt = joined(Path(parentDirectory(output)), name);
  TRY_VOID(platform.files.writeNew(attempt, ByteChain(), Durability::cached));
  return platform.files.remove(attempt);
}

}  // namespace

MultiTrackFile::MultiTrackFile(Platform& platform, RecordingJournal& journal, Path path,
                               std::unique_ptr<AssetWriter> writer)
    : platform_(platform),
      journal_(journal),
      path_(std::move(path)),
      writer_(std::move(writer)),
      audioInput_(writer_->addAudioInput(MacRecordingConfig::audioSettings())),
      microphoneInput_(writer_->addAudioInput(MacRecordingConfig::audioSettings())) {}

Result<std::unique_ptr<MultiTrackFile>> MultiTrackFile::create(Platform& platform, RecordingJournal& journal,
                                                               const Path& output) {
  if (auto checked = checkOutput(platform, journal, output); !checked) {
    return Error(AudioRecordingError::fileCreationFailed).withUnderlying(checked.error());
  }
  const Path& directory = platform.places.temporary;
  TRY_VOID(platform.files.createDirectories(directory));
  const Path path = joined(directory, "multitrack_audio_" + platform.random.uuid().string() + ".m4a");
  TRY(auto writer, platform.mediaWriters.makeMovieWriter(path, MovieFileType::appleM4A, NetworkUse::optimized));
  std::unique_ptr<MultiTrackFile> file(new MultiTrackFile(platform, journal, path, std::move(writer)));
  TRY(file->journalId_, journal.open(path, platform.dispatch.now(), output));
  return file;
}

Result<void> MultiTrackFile::startWriting() {
  if (writer_->startWriting()) return success;
  Error error = AudioRecordingError::fileCreationFailed;
  if (auto reason = writer_->error()) error = std::move(error).withUnderlying(*std::move(reason));
  return error;
}

Task<void> MultiTrackFile::finish() {
  StandardOutput& out = platform_.standardOutput;
  out.print("🎯 AudioSessionRecorder: Finishing asset writer - status: " + rawStatus(*writer_));
  for (AssetWriterInput* input : {audioInput_, microphoneInput_}) {
    if (input != nullptr) input->markAsFinished();
  }
  out.print("🎯 AudioSessionRecorder: Marked audio inputs as finished");
  std::ignore = co_await writer_->finishWriting();  // the writer's error tells the same
  if (const auto error = writer_->error()) {
    out.print("❌ AudioSessionRecorder: Asset writer finished with error: " + error->description());
  } else {
    out.print("✅ AudioSessionRecorder: Asset writer finished successfully");
  }
  co_return success;
}

void MultiTrackFile::settle() { journal_.close(journalId_); }

void MultiTrackFile::cancel() {
  writer_->cancelWriting();
  settle();
}

}  // namespace quillbeam
