#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "chunking/ChunkedRecording.h"
#include "platform/Dispatch.h"

namespace quillbeam {

/// What is said of one kind of part. Numbers follow the first three, the reason the last.
struct PartTexts {
  std::string_view sending;
  std::string_view sent;
  std::string_view failed;
  std::string_view failedEnding;
};

/// What is said of a segment that waits to be sent. Sizes in bytes.
struct BufferedSegment {
  std::int64_t index = 0;
  std::size_t size = 0;
  std::size_t totalBuffered = 0;
  std::size_t percentOfPart = 0;
};

/// All that screen recordings and audio-only recordings do differently between a segment and the finished upload.
/// Whatever is not named here they do alike.
struct SegmentPolicy {
  enum class Indexes { countInitialization, countMediaOnly };
  /// Of unsent bytes while uploads stall: beyond a limit they go, or they are read back from the backup when their turn
  /// comes. Only the latter also limits how many parts the delegate holds unanswered.
  enum class Backlog { discarded, readBack };
  enum class FinalSegment { isAwaited, isNotAwaited };
  enum class FailedFinalPart { isLeftOut, endsTheUpload };
  enum class Inspection { timingAndFirstBox, none };

  Duration openingDelay;
  Duration partsCheck;
  std::size_t maxPartsInFlight;
  Indexes indexes;
  Backlog backlog;
  FinalSegment finalSegment;
  FailedFinalPart failedFinalPart;
  Inspection inspection;

  Error uploadDelegateNotSet;
  Error uploadFailed;  ///< its description is continued by the reason

  std::string_view backupBegun;             // the backup's id follows
  std::string_view initializationReceived;  // its size follows
  std::string_view mediaReceived;           // its index follows
  std::string (*segmentBuffered)(const BufferedSegment& segment);
  std::string_view stillBuffering;  // the total follows
  std::vector<std::string> (*opening)(const ChunkedRecording& recording, const std::string& backupId);
  std::string_view opened;            // the file's id follows
  std::string_view checkingBuffered;  // what is buffered follows
  std::string_view handingOver;       // a part's number follows
  PartTexts regularPart;
  PartTexts bufferedPart;
  std::string_view backupRemoved;  // empty: nothing is said
};

const SegmentPolicy& videoSegmentPolicy();
const SegmentPolicy& audioSegmentPolicy();

}  // namespace quillbeam
