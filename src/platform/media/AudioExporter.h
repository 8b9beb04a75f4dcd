#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/MediaTime.h"
#include "base/Result.h"
#include "base/Task.h"
#include "platform/Files.h"

namespace quillbeam {

/// One audio track of a file.
struct AudioTrack {
  MediaTime duration;  ///< zero when nothing was ever written to it
  int sampleRate = 0;
  int channels = 0;
};

/// What an export makes: the tracks of `source`, each from the file's zero, summed with their volumes, limited to full
/// scale, as one AAC track of 48 kHz stereo in a fast-start MPEG-4 audio file.
struct AudioMix {
  struct Track {
    int index = 0;  ///< among the file's audio tracks
    double volume = 1;
  };
  Path source;
  std::vector<Track> tracks;
  Path output;
};

/// One export: unknown → exporting → completed | failed | cancelled.
///
/// The output appears complete and durable at its path or not at all; what was there before is replaced at that moment.
/// Memory is some ten seconds of sound per track at most, however long the tracks are and however early one ends, and
/// both files' indexes, which grow with the length. What of a track cannot be decoded is silence.
/// One export per output at a time: it removes the temporary file of one that died.
class AudioExport {
 public:
  enum class Status { unknown = 0, waiting = 1, exporting = 2, completed = 3, failed = 4, cancelled = 5 };

  /// Cancels what still runs and waits for its thread.
  virtual ~AudioExport() = default;

  /// Works on a thread of its own; resumes when the status is one of the last three, with `error()` as its result, or
  /// `CommonError::cancelled`. Once.
  virtual Task<void> run() = 0;
  /// Ends `run` with `cancelled` soon. Any thread.
  virtual void cancel() = 0;
  virtual Status status() const = 0;               ///< any thread
  virtual std::optional<Error> error() const = 0;  ///< any thread; set when failed
  virtual double progress() const = 0;             ///< any thread; 0…1, of the longest track
};

enum class AudioExporterError {
  cannotRead,    ///< no such file, or none that plays; underlying: the reason
  noSuchTrack,   ///< the mix names a track that the file has not, or none at all
  cannotEncode,  ///< no encoder for it
  diskFull,      ///< nothing is left behind
  writeFailed,   ///< underlying: the system's reason; nothing is left behind
};
std::string describe(AudioExporterError error);
constexpr std::string_view errorDomain(AudioExporterError) { return "AudioExporterError"; }

/// Mixes the audio tracks of files. Any thread.
class AudioExporter {
 public:
  virtual ~AudioExporter() = default;

  /// The file's audio tracks in its order; reads the index only, but blocks for that. A file finished after a few
  /// seconds has no track for an input to which nothing was written; later on that track is silence.
  virtual Result<std::vector<AudioTrack>> audioTracks(const Path& file) = 0;
  virtual std::unique_ptr<AudioExport> makeExport(AudioMix mix) = 0;
};

}  // namespace quillbeam
