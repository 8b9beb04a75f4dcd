#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Completion.h"
#include "platform/Dispatch.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// A track of a simulated movie: what was appended, as it was appended.
struct SimMovieTrack {
  std::optional<VideoSettings> video;
  std::optional<AudioSettings> audio;
  std::vector<SampleBuffer> samples;
  bool isFinished = false;

  bool isReady = true;         ///< script: what the input answers while it is written
  bool acceptsSamples = true;  ///< script: false lets appends fail although the writer is writing
};

/// A movie that was written, or is. Outlives its writer, so that tests can look at it afterwards.
struct SimMovie {
  Path path;
  MovieFileType fileType = MovieFileType::mpeg4;
  NetworkUse networkUse = NetworkUse::notOptimized;
  AssetWriter::Status status = AssetWriter::Status::unknown;
  std::optional<Error> error;
  std::vector<std::unique_ptr<SimMovieTrack>> tracks;
  std::optional<MediaTime> sessionStart;
  std::optional<MediaTime> sessionEnd;

  /// The track of pictures; the `index`-th sound track. nullptr when there is none.
  SimMovieTrack* pictures() const;
  SimMovieTrack* sound(std::size_t index) const;
  /// From the session's start to the end of what lasts longest, or to the session's end.
  MediaTime duration() const;
};

/// A recording that was written in segments, or is. Outlives its writer, so that tests can look at it afterwards.
struct SimSegmentedMovie {
  SimMovie content;  ///< what was appended to the writer; has no file
  std::shared_ptr<SimMovie>
      movie;                      ///< the movie file beside it, also among `movies()`; nullptr when none was asked for
  std::vector<Segment> segments;  ///< delivered, in order

  std::int64_t bytesDelivered() const;
};

/// Script: how simulated segments come out.
struct SimSegmentScript {
  std::size_t initializationSize = 1'200;
  std::size_t mediaSize = 2'000'000;  ///< of a whole interval; a shorter one has its share

  /// When the last segment comes: before the finishing ends, as the port promises; or, to see that nobody hangs or
  /// breaks over it, some time after that, or not at all.
  enum class Last { inTime, late, never };
  Last last = Last::inTime;
  Duration lateBy{std::chrono::seconds{1}};
};

/// What a simulated segment holds: a box header (ftyp, moof) and then bytes that are different for each segment of each
/// recording (counting from zero, in the order in which they were made). `index` 0 is the initialization.
Bytes simSegmentContent(std::size_t recording, std::size_t index, std::size_t size);

/// Makes writers that remember what was appended instead of encoding it. A movie's file lies on the simulated disk, so
/// that it is found, refused, removed and repaired like a real one; its content is a few bytes that stand for it.
/// Segments come as pictures pass their ends, or sound when there are no pictures, on a queue of the writer's own.
/// One thread.
class SimMediaWriters final : public MediaWriters {
 public:
  SimMediaWriters(Dispatch& dispatch, Files& files) : dispatch_(dispatch), files_(files) {}

  Result<std::unique_ptr<AssetWriter>> makeMovieWriter(const Path& path, MovieFileType type, NetworkUse use) override;
  Result<std::unique_ptr<SegmentWriter>> makeSegmentWriter(SegmentWriterOptions options) override;
  Result<RepairReport> repair(const Path& path) override;

  // The test's side.

  /// All movies in the order in which their writers were made.
  const std::vector<std::shared_ptr<SimMovie>>& movies() const { return movies_; }
  SimMovie& lastMovie() const { return *movies_.back(); }

  /// All recordings in segments, likewise.
  const std::vector<std::shared_ptr<SimSegmentedMovie>>& segmentedMovies() const { return segmentedMovies_; }
  SimSegmentedMovie& lastSegmentedMovie() const { return *segmentedMovies_.back(); }
  /// In force from now on, also for writers that are writing.
  void setSegmentScript(SimSegmentScript script) { segmentScript_ = script; }

  /// The next writer is not made; the next `startWriting` answers false. Each once.
  void refuseNextWriter(Error error) { writerRefusal_ = std::move(error); }
  void refuseNextStart(Error error) { startRefusal_ = std::move(error); }
  /// Inputs of the next writers are refused (`addVideoInput`, `addAudioInput` answer nullptr).
  void refuseInputs(bool refuse) { refusesInputs_ = refuse; }
  /// The movie's writing breaks off, as when the disk is full. Segments break off when it is their `content`.
  void fail(SimMovie& movie, Error error);
  /// How long `finishWriting` takes from now on.
  void setFinishingTime(Duration duration) { finishingTime_ = duration; }

 private:
  friend class SimAssetWriter;
  friend class SimSegmentWriter;
  std::optional<Error> takeStartRefusal() { return std::exchange(startRefusal_, std::nullopt); }

  Dispatch& dispatch_;
  Files& files_;
  std::vector<std::shared_ptr<SimMovie>> movies_;
  std::vector<std::shared_ptr<SimSegmentedMovie>> segmentedMovies_;
  SimSegmentScript segmentScript_;
  std::optional<Error> writerRefusal_;
  std::optional<Error> startRefusal_;
  bool refusesInputs_ = false;
  Duration finishingTime_{0};
};

}  // namespace quillbeam
