#include "recording/MultiTrackMix.h"

#include <algorithm>
#include <tuple>

#include "recording/AudioRecordingError.h"

namespace quillbeam {

namespace {

constexpr double systemAudioVolume = 1.0;
constexpr double microphoneVolume = 2.5;

// What the user sees of the steps.
constexpr double planned = 0.3;
constexpr double exporting = 0.5;
constexpr double exported = 0.9;
constexpr double done = 1.0;

bool hasSound(const AudioTrack& track) { return track.duration > MediaTime::zero(); }

}  // namespace

bool MultiTrackMix::isWorthAnotherTry(const Error& error) {
  return error.is(AudioExporterError::diskFull) || error.is(AudioExporterError::writeFailed) ||
         error.is(CommonError::cancelled);
}

Task<void> MultiTrackMix::run() {
  CO_TRY(auto mix, co_await plan());
  progress_ = planned;
  if (isCancelled_) co_return CommonError::cancelled;
  progress_ = exporting;
  export_ = platform_.audioExporter.makeExport(std::move(mix));
  std::ignore = co_await export_->run();  // its status and error tell the same
  progress_ = exported;
  CO_TRY_VOID(outcome());
  // What is left behind here costs space and nothing else.
  std::ignore = platform_.files.remove(multiTrackFile_);
  print("✅ AudioSessionRecorder: Successfully mixed tracks to single file");
  progress_ = done;
  print("✅ AudioSessionRecorder: Post-processing completed successfully");
  co_return success;
}

void MultiTrackMix::cancel() {
  isCancelled_ = true;
  if (export_) export_->cancel();
}

double MultiTrackMix::progress() const {
  if (progress_ != exporting) return progress_;
  return exporting + (exported - exporting) * export_->progress();
}

Task<AudioMix> MultiTrackMix::plan() {
  if (!platform_.files.exists(multiTrackFile_)) {
    print("❌ AudioSessionRecorder: Temp file does not exist");
    co_return AudioRecordingError::postProcessingFailed;
  }
  AudioExporter& exporter = platform_.audioExporter;
  const auto read = [&exporter, file = multiTrackFile_] { return exporter.audioTracks(file); };
  const auto tracks = co_await runOn<std::vector<AudioTrack>>(platform_.dispatch.global(), read);
  if (!tracks) co_return failed(tracks.error());
  if (std::ranges::none_of(*tracks, hasSound)) {
    print("❌ AudioSessionRecorder: No audio tracks found in asset");
    co_return AudioRecordingError::nothingRecorded;
  }
  print("🎯 AudioSessionRecorder: Found " + std::to_string(tracks->size()) + " audio tracks to mix");
  co_return mixOf(tracks->size());
}

AudioMix MultiTrackMix::mixOf(std::size_t trackCount) const {
  AudioMix mix{.source = multiTrackFile_, .tracks = {}, .output = output_};
  for (int index = 0; index < static_cast<int>(trackCount); ++index) {
    const bool isSystemAudio = index == 0;
    mix.tracks.push_back({index, isSystemAudio ? systemAudioVolume : microphoneVolume});
    print(isSystemAudio ? "🔊 AudioSessionRecorder: Set system audio volume to 1.0x"
                        : "🎤 AudioSessionRecorder: Set microphone volume to 2.5x");
  }
  return mix;
}

Result<void> MultiTrackMix::outcome() const {
  using Status = AudioExport::Status;
  const auto error = export_->error();
  switch (export_->status()) {
    case Status::completed:
      return success;
    case Status::failed:
      if (error) return failed(*error);
      print("❌ AudioSessionRecorder: Export failed with unknown error");
      return AudioExporterError::writeFailed;
    case Status::cancelled:
      print("❌ AudioSessionRecorder: Export was cancelled");
      return CommonError::cancelled;
    case Status::unknown:
    case Status::waiting:
    case Status::exporting:
      print("❌ AudioSessionRecorder: Export finished with unexpected status: " +
            std::to_string(static_cast<int>(export_->status())));
      return AudioExporterError::writeFailed;
  }
  std::unreachable();
}

Error MultiTrackMix::failed(const Error& error) const {
  print("❌ AudioSessionRecorder: Export failed: " + error.fullDescription());
  return error;
}

}  // namespace quillbeam
