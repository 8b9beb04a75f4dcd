#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "base/ByteChain.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// What a segment is. Receivers drop kinds that they do not know, by number.
enum class SegmentKind : int {
  initialization = 1,  ///< file header and tracks; once, before any media
  separable = 2,       ///< media: one self-contained fragment; its pictures start with a key frame
};

enum class MediaType { video, audio };
/// "vide", "soun": as the file format calls them.
std::string_view toText(MediaType type);

/// What one track holds of a segment.
struct SegmentTrackReport {
  MediaType mediaType = MediaType::video;
  MediaTime earliestPresentationTime;
  MediaTime duration;
  std::optional<MediaTime> firstVideoSamplePresentationTime;  ///< video only
};

/// The tracks that have something in the segment, in the order of their inputs.
struct SegmentReport {
  std::vector<SegmentTrackReport> trackReports;
};

struct Segment {
  ByteChain bytes;
  SegmentKind kind = SegmentKind::separable;
  std::optional<SegmentReport> report;  ///< media only
};

/// Called on the writer's own thread, one segment after the other, in order; the last call comes before the task of
/// `finishWriting` ends, and none comes after the writer was cancelled or destroyed. Must not block, and must not call
/// the writer's `cancelWriting` or destroy it.
using SegmentSink = std::function<void(Segment segment)>;

struct SegmentWriterOptions {
  /// The initialization is delivered as soon as each track has begun (or been begun for it, after a few seconds of
  /// nothing), each piece of the timeline of this length (from zero on) as soon as every track has passed its end, or
  /// has fallen too far behind to be waited for. A key frame is forced at each boundary; pictures must come in order of
  /// presentation (`VideoSettings::allowFrameReordering` false, or else the input is refused).
  MediaTime segmentInterval{10, 1};
  SegmentSink sink;
  /// An ordinary movie file of the same content, in parallel and from the same encoders. Its failure (the path taken,
  /// the disk full) ends only itself.
  std::optional<Path> movieFile;
};

/// An `AssetWriter` whose output is segments. Concatenated, they are one fragmented MP4 that plays from zero, as does
/// every prefix of them. `error()`, `bytesWritten()` (of all segments) and `status()` speak of the segments.
///
/// Finishing delivers the last, shorter segment first and then finishes the movie file; its task ends after both, with
/// the segments' outcome. Nothing was appended: nothing is delivered. Cancelling removes the movie file.
class SegmentWriter : public AssetWriter {
 public:
  /// Of the movie file: what went wrong, if anything; any thread.
  virtual std::optional<Error> movieError() const = 0;
  /// The movie file's size so far; 0 without one. Any thread.
  virtual std::int64_t movieBytesWritten() const = 0;
};

}  // namespace quillbeam
