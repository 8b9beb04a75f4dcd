#include "platform/sim/SimMediaWriters.h"

#include <algorithm>
#include <utility>

#include "platform/sim/SimAssetWriter.h"
#include "platform/sim/SimMovieFile.h"
#include "platform/sim/SimSegmentWriter.h"

namespace quillbeam {

using namespace simMovieFile;

SimMovieTrack* SimMovie::pictures() const {
  for (const auto& track : tracks) {
    if (track->video) return track.get();
  }
  return nullptr;
}

SimMovieTrack* SimMovie::sound(std::size_t index) const {
  for (const auto& track : tracks) {
    if (track->audio && index-- == 0) return track.get();
  }
  return nullptr;
}

MediaTime SimMovie::duration() const {
  const MediaTime start = sessionStart.value_or(MediaTime::zero());
  if (sessionEnd) return *sessionEnd - start;
  MediaTime end = start;
  for (const auto& track : tracks) {
    if (track->samples.empty()) continue;
    const SampleBuffer& last = track->samples.back();
    end = std::max(end, last.presentationTime());
    if (last.duration().isValid()) end = std::max(end, last.presentationTime() + last.duration());
  }
  return end - start;
}

Result<std::unique_ptr<AssetWriter>> SimMediaWriters::makeMovieWriter(const Path& path, MovieFileType type,
                                                                      NetworkUse use) {
  if (auto refusal = std::exchange(writerRefusal_, std::nullopt)) return *refusal;
  if (files_.exists(path)) return AssetWriterError::fileExists;
  const auto directory = files_.info(Path(parentDirectory(path)));
  if (!directory) return fileError(directory.error());
  auto movie = std::make_shared<SimMovie>();
  movie->path = path;
  movie->fileType = type;
  movie->networkUse = use;
  movies_.push_back(movie);
  return std::unique_ptr<AssetWriter>(std::make_unique<SimAssetWriter>(*this, std::move(movie)));
}

Result<std::unique_ptr<SegmentWriter>> SimMediaWriters::makeSegmentWriter(SegmentWriterOptions options) {
  if (auto refusal = std::exchange(writerRefusal_, std::nullopt)) return *refusal;
  if (options.segmentInterval <= MediaTime::zero() || !options.sink) return AssetWriterError::cannotEncode;
  auto recording = std::make_shared<SimSegmentedMovie>();
  if (options.movieFile) {
    recording->movie = movies_.emplace_back(std::make_shared<SimMovie>());
    recording->movie->path = *options.movieFile;
    recording->movie->networkUse = NetworkUse::optimized;
  }
  const std::size_t number = segmentedMovies_.size();
  segmentedMovies_.push_back(recording);
  return std::unique_ptr<SegmentWriter>(
      std::make_unique<SimSegmentWriter>(*this, std::move(recording), number, std::move(options)));
}

Result<RepairReport> SimMediaWriters::repair(const Path& path) {
  const auto bytes = files_.read(path);
  if (!bytes) return fileError(bytes.error());
  MediaTime duration = MediaTime::zero();
  for (const auto& movie : movies_) {
    if (movie->path == path) duration = movie->duration();
  }
  if (isMovie(*bytes, finishedContent)) return RepairReport{duration, 0, true};
  if (!isMovie(*bytes, unfinishedContent) || duration == MediaTime::zero()) return AssetWriterError::notRecoverable;
  TRY_VOID(files_.writeAtomically(path, content(finishedContent)));
  return RepairReport{duration, 0, false};
}

void SimMediaWriters::fail(SimMovie& movie, Error error) {
  movie.status = AssetWriter::Status::failed;
  movie.error = std::move(error);
}

}  // namespace quillbeam
