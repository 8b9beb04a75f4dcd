#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Result.h"
#include "base/Task.h"
#include "base/Value.h"
#include "platform/Files.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

class SegmentWriter;
struct SegmentWriterOptions;

/// H.264 High, automatic level, CABAC.
struct VideoSettings {
  int width = 0;                    ///< even
  int height = 0;                   ///< even
  std::int64_t averageBitRate = 0;  ///< bits per second
  int expectedSourceFrameRate = 0;  ///< frames per second; the real spacing comes from the time stamps
  int maxKeyFrameInterval = 0;      ///< frames
  bool allowFrameReordering = false;
  double quality = 0;  ///< 0…1
  Value toValue() const;
};

/// MPEG-4 AAC (LC).
struct AudioSettings {
  int sampleRate = 0;
  int channels = 0;
  std::int64_t bitRate = 0;  ///< bits per second
  int encoderQuality = 64;   ///< 0…127, 64 is medium
  Value toValue() const;
};

/// One track of a writer. Each input is fed from one queue at a time; different inputs may be fed at the same time.
class AssetWriterInput {
 public:
  virtual ~AssetWriterInput() = default;

  /// False while this input's queue is full: pictures beyond about half a second, sound beyond several seconds. A
  /// writer that failed holds nobody up: its inputs are ready, and refuse.
  virtual bool isReadyForMoreMediaData() const = 0;
  /// Queues the sample; it is encoded and written on the writer's own threads. Times count from the session's zero and
  /// must rise. Past readiness it still queues. False when the writer is not writing or the input is finished.
  virtual bool append(const SampleBuffer& sample) = 0;
  /// No more samples will come. Further appends answer false.
  virtual void markAsFinished() = 0;
};

/// Writes one MP4 file with a track per input.
///
/// unknown → startWriting → writing → finishWriting → completed
///                             └ any error → failed; cancelWriting → cancelled
///
/// While it is writing the file grows in self-contained fragments of at most a second, so that what is on disk plays
/// (or is made to by `MediaWriters::repair`) whenever the process dies. Finishing puts the index into space reserved at
/// the front and turns the file into an ordinary one without moving media.
class AssetWriter {
 public:
  enum class Status { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

  /// Without finish or cancel: stops its threads and leaves the file as it is, in its recoverable form.
  virtual ~AssetWriter() = default;

  /// The new track's input, owned by the writer; nullptr when the writer does not accept it (already writing, or
  /// settings it cannot encode).
  virtual AssetWriterInput* addVideoInput(const VideoSettings& settings) = 0;
  virtual AssetWriterInput* addAudioInput(const AudioSettings& settings) = 0;

  /// Opens the encoders and the file. False on refusal; `error()` says why.
  virtual bool startWriting() = 0;
  /// The zero of the file's timeline. Samples before it are cut. Once, before the first append.
  virtual void startSession(MediaTime sourceTime) = 0;
  /// Samples at or after it are cut; a last picture that began before it is shown until then.
  virtual void endSession(MediaTime sourceTime) = 0;
  /// Encodes and writes everything queued, finishes the file, makes it durable. Ends with `completed` or `failed`;
  /// a failed writer's file keeps what was written before. The task's result is the final `error()`.
  virtual Task<void> finishWriting() = 0;
  /// Stops and removes the file.
  virtual void cancelWriting() = 0;

  virtual Status status() const = 0;               ///< any thread
  virtual std::optional<Error> error() const = 0;  ///< any thread; set when failed
  virtual std::int64_t bytesWritten() const = 0;   ///< any thread; the file's size so far
};

enum class AssetWriterError {
  fileExists,      ///< there is a file at the output path; it is left alone
  cannotOpenFile,  ///< underlying: the system's reason
  cannotEncode,    ///< no encoder, or it refuses the settings
  diskFull,        ///< what was written before is kept
  writeFailed,     ///< underlying: the system's reason; what was written before is kept
  notRecoverable,  ///< repair found no complete fragment
};
std::string describe(AssetWriterError error);
constexpr std::string_view errorDomain(AssetWriterError) { return "AssetWriterError"; }

enum class NetworkUse { notOptimized, optimized };

/// Both are the same container; the second says of itself that it is sound alone.
enum class MovieFileType { mpeg4, appleM4A };

/// What `repair` found.
struct RepairReport {
  MediaTime duration;               ///< of the longest track
  std::int64_t bytesDiscarded = 0;  ///< torn bytes behind the last complete fragment
  bool wasComplete = false;         ///< nothing to do: the file had been finished
};

/// Makes writers. Any thread.
class MediaWriters {
 public:
  virtual ~MediaWriters() = default;

  /// A writer for a new file. `fileExists`, `cannotOpenFile` (with the reason) at once, before anything starts.
  virtual Result<std::unique_ptr<AssetWriter>> makeMovieWriter(const Path& path, MovieFileType type,
                                                               NetworkUse use) = 0;

  /// A writer of segments. Fails only for options that make no sense (`AssetWriterError::cannotEncode`); a movie file
  /// that cannot be opened is `SegmentWriter::movieError()`.
  virtual Result<std::unique_ptr<SegmentWriter>> makeSegmentWriter(SegmentWriterOptions options) = 0;

  /// Finishes a file that a dead process left behind, in place: everything up to its last complete fragment becomes an
  /// ordinary file. Blocks; never call it for a file that a live process writes.
  virtual Result<RepairReport> repair(const Path& path) = 0;
};

}  // namespace quillbeam
