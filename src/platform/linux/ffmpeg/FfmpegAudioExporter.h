#pragma once

#include "platform/media/AudioExporter.h"

namespace quillbeam {

/// Mixes the sound of MPEG-4 files with the FFmpeg libraries. Any thread.
class FfmpegAudioExporter final : public AudioExporter {
 public:
  FfmpegAudioExporter();

  Result<std::vector<AudioTrack>> audioTracks(const Path& file) override;
  std::unique_ptr<AudioExport> makeExport(AudioMix mix) override;
};

}  // namespace quillbeam
