#include "platform/linux/ffmpeg/FfmpegAudioExporter.h"

#include <utility>

#include "platform/linux/ffmpeg/FfmpegAudioExport.h"
#include "platform/linux/ffmpeg/SoundFile.h"

namespace quillbeam {

FfmpegAudioExporter::FfmpegAudioExporter() {
  // The libraries' own chatter would end up among our standard error lines; failures reach us as codes.
  av_log_set_level(AV_LOG_QUIET);
}

Result<std::vector<AudioTrack>> FfmpegAudioExporter::audioTracks(const Path& file) {
  TRY(const SoundFile sound, SoundFile::open(file));
  std::vector<AudioTrack> tracks;
  for (std::size_t i = 0; i < sound.tracks().size(); ++i) tracks.push_back(sound.describeTrack(i));
  return tracks;
}

std::unique_ptr<AudioExport> FfmpegAudioExporter::makeExport(AudioMix mix) {
  return std::make_unique<FfmpegAudioExport>(std::move(mix));
}

}  // namespace quillbeam
