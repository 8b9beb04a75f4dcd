#include "recording/SingleFileWriter.h"

#include <tuple>

#include "base/Json.h"
#include "recording/RecordingError.h"
#include "recording/WriterText.h"

namespace quillbeam {

SingleFileWriter::SingleFileWriter(StandardOutput& out, Path path, std::unique_ptr<AssetWriter> writer)
    : out_(out), path_(std::move(path)), writer_(std::move(writer)) {}

Result<std::unique_ptr<SingleFileWriter>> SingleFileWriter::create(MediaWriters& writers, StandardOutput& out,
                                                                   const Path& path, Resolution resolution,
                                                                   const RecordingConfig& config) {
  TRY(auto assetWriter, writers.makeMovieWriter(path, MovieFileType::mpeg4, NetworkUse::optimized));
  std::unique_ptr<SingleFileWriter> writer(new SingleFileWriter(out, path, std::move(assetWriter)));
  writer->addTracks(resolution, config);
  return writer;
}

void SingleFileWriter::addTracks(Resolution resolution, const RecordingConfig& config) {
  const VideoSettings video = MacRecordingConfig::singleFileVideoSettings(resolution);
  const AudioSettings audio = MacRecordingConfig::audioSettings();
  out_.print("🎯 Video settings using aspect-ratio-preserved resolution: " + resolution.text());
  if (config.includeSystemAudio) out_.print("🔊 Created system audio input");
  if (config.includeMicrophone) out_.print("🎤 Created microphone audio input");
  out_.print("🎯 Video settings: " + toJson(video.toValue()).value_or(""));
  out_.print("🎯 Audio settings: " + toJson(audio.toValue()).value_or(""));

  videoInput_ = writer_->addVideoInput(video);
  if (videoInput_ != nullptr) out_.print("📹 Added video input to asset writer");
  if (config.includeSystemAudio) audioInput_ = writer_->addAudioInput(audio);
  if (audioInput_ != nullptr) out_.print("🔊 Added system audio input to asset writer");
  if (config.includeMicrophone) microphoneInput_ = writer_->addAudioInput(audio);
  if (microphoneInput_ != nullptr) out_.print("🎤 Added microphone input to asset writer");
}

Result<void> SingleFileWriter::startWriting() {
  if (writer_->startWriting()) return success;
  Error error = RecordingError::fileCreationFailed;
  if (auto reason = writer_->error()) error = std::move(error).withUnderlying(*std::move(reason));
  return error;
}

Task<void> SingleFileWriter::finish(Files& files) {
  out_.print("🎯 Finishing asset writer - status: " + rawStatus(*writer_));
  for (AssetWriterInput* input : {videoInput_, audioInput_, microphoneInput_}) {
    if (input != nullptr) input->markAsFinished();
  }
  out_.print("🎯 Marked inputs as finished");
  std::ignore = co_await writer_->finishWriting();  // the writer's status and error tell the same
  reportEnd();
  reportFile(files);
  co_return success;
}

void SingleFileWriter::reportEnd() const {
  const std::string status = rawStatus(*writer_);
  out_.print("🎯 AssetWriter final status after finishWriting: " + status +
             " (0=unknown, 1=writing, 2=completed, 3=failed, 4=cancelled)");
  if (const auto error = writer_->error()) {
    out_.print("❌ Asset writer finished with error: " + error->description());
  } else if (writer_->status() == AssetWriter::Status::completed) {
    out_.print("✅ Asset writer finished successfully with status: completed");
  } else if (writer_->status() == AssetWriter::Status::failed) {
    out_.print("❌ Asset writer status is FAILED but no error reported");
  } else {
    out_.print("⚠️ Asset writer finished with unexpected status: " + status);
  }
}

void SingleFileWriter::reportFile(Files& files) const {
  out_.print("📁 Output URL: " + path_);
  if (!files.exists(path_)) return out_.print("❌ Output file does not exist at: " + path_);
  const auto info = files.info(path_);
  if (!info) return out_.print("⚠️ Could not get file attributes: " + info.error().description());
  out_.print("📁 File size: " + std::to_string(info->size) + " bytes");
  if (info->size == 0) {
    out_.print("⚠️ WARNING: File exists but has 0 bytes! This indicates samples were not actually written.");
  }
}

}  // namespace quillbeam
