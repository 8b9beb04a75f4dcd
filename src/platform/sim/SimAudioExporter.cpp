#include "platform/sim/SimAudioExporter.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <utility>

#include "platform/sim/SimAudioExport.h"
#include "platform/sim/SimMovieFile.h"

namespace quillbeam {

using namespace simMovieFile;

namespace {

AudioTrack describeTrack(const SimMovie& movie, const SimMovieTrack& track) {
  AudioTrack result{MediaTime::zero(), track.audio->sampleRate, track.audio->channels};
  if (track.samples.empty()) return result;
  const SampleBuffer& last = track.samples.back();
  MediaTime end = last.presentationTime() + last.duration();
  if (movie.sessionEnd) end = std::min(end, *movie.sessionEnd);
  result.duration = std::max(MediaTime::zero(), end - movie.sessionStart.value_or(MediaTime::zero()));
  return result;
}

}  // namespace

std::string simMixContent(const AudioMix& mix) {
  std::ostringstream text;
  text << "sound, mixed from " << mix.source << ":";
  for (const auto& [index, volume] : mix.tracks) text << ' ' << index << 'x' << volume;
  return text.str();
}

Result<std::vector<AudioTrack>> SimAudioExporter::audioTracks(const Path& file) {
  const auto bytes = files_.read(file);
  if (!bytes) return Error(AudioExporterError::cannotRead).withUnderlying(bytes.error());
  for (const Output& output : outputs_) {
    if (output.mix.output != file || !isMovie(*bytes, simMixContent(output.mix))) continue;
    return std::vector<AudioTrack>{{output.duration, 48'000, 2}};
  }
  if (!isMovie(*bytes, finishedContent) && !isMovie(*bytes, unfinishedContent)) return AudioExporterError::cannotRead;
  std::vector<AudioTrack> tracks;
  for (const auto& movie : movies_.movies()) {
    if (movie->path != file) continue;
    tracks.clear();
    for (const auto& track : movie->tracks) {
      if (track->audio) tracks.push_back(describeTrack(*movie, *track));
    }
  }
  return tracks;
}

std::unique_ptr<AudioExport> SimAudioExporter::makeExport(AudioMix mix) {
  return std::make_unique<SimAudioExport>(*this, std::move(mix));
}

std::optional<Error> SimAudioExporter::takeFailure(double progress) {
  if (!failure_ || progress < failure_->progress) return std::nullopt;
  return std::exchange(failure_, std::nullopt)->error;
}

Result<void> SimAudioExporter::write(const AudioMix& mix, MediaTime duration) {
  if (auto written = files_.writeAtomically(mix.output, content(simMixContent(mix))); !written) {
    const bool isFull = written.error().code() == ENOSPC;
    return Error(isFull ? AudioExporterError::diskFull : AudioExporterError::writeFailed)
        .withUnderlying(written.error());
  }
  std::erase_if(outputs_, [&](const Output& output) { return output.mix.output == mix.output; });
  outputs_.push_back({mix, duration});
  mixes_.push_back(mix);
  return success;
}

}  // namespace quillbeam
