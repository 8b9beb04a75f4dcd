#include "chunking/SegmentPolicy.h"

#include <chrono>
#include <cstdint>

#include "chunking/AudioChunkError.h"
#include "chunking/PartBuffer.h"
#include "chunking/VideoChunkError.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

std::string videoSegmentBuffered(const BufferedSegment& segment) {
  return "Buffered segment #" + std::to_string(segment.index) + ", size: " + std::to_string(segment.size) +
         " bytes, total buffered: " + std::to_string(segment.totalBuffered) + " bytes (" +
         std::to_string(segment.percentOfPart) + "%)";
}

std::string audioSegmentBuffered(const BufferedSegment& segment) {
  return "Buffer status: " + std::to_string(segment.totalBuffered) + " / " + std::to_string(PartBuffer::fixedPartSize) +
         " bytes (" + std::to_string(segment.percentOfPart) + "%)";
}

std::vector<std::string> videoOpening(const ChunkedRecording& recording, const std::string& backupId) {
  return {"Attempting to initialize multipart upload for " + recording.fileName + " ",
          "TeamId: " + recording.teamId + ", FolderId: " + recording.folderId +
              ", LocalBackup: " + recording.localFile.value_or("none") + ", SegmentBackupId: " + backupId};
}

std::vector<std::string> audioOpening(const ChunkedRecording& recording, const std::string& backupId) {
  return {"Initializing multipart upload for audio file: " + recording.fileName + " (segmentBackupId: " + backupId +
          ")"};
}

}  // namespace

const SegmentPolicy& videoSegmentPolicy() {
  static const SegmentPolicy policy{
      .openingDelay = 500ms,
      .partsCheck = 500ms,
      .maxPartsInFlight = SIZE_MAX,
      .indexes = SegmentPolicy::Indexes::countInitialization,
      .backlog = SegmentPolicy::Backlog::discarded,
      .finalSegment = SegmentPolicy::FinalSegment::isAwaited,
      .failedFinalPart = SegmentPolicy::FailedFinalPart::isLeftOut,
      .inspection = SegmentPolicy::Inspection::timingAndFirstBox,
      .uploadDelegateNotSet = VideoChunkError::uploadDelegateNotSet,
      .uploadFailed = VideoChunkError::uploadFailed,
      .backupBegun = "✅ Segment backup manager initialized for crash recovery with ID: ",
      .initializationReceived = "Received initialization segment, size: ",
      .mediaReceived = "Received media segment #",
      .segmentBuffered = videoSegmentBuffered,
      .stillBuffering = "⏳ Multipart not ready yet, buffering data (total: ",
      .opening = videoOpening,
      .opened = "✅ Multipart upload initialized successfully with fileId: ",
      .checkingBuffered = "📤 Checking for buffered data to upload after initialization (buffer: ",
      .handingOver = "Uploading video fMP4 part #",
      .regularPart = {"🚀 Starting upload for part #", "✅ Part #", "❌ Real-time upload failed for part #", ""},
      .bufferedPart = {"🚀 Uploading buffered part #", "✅ Buffered part #", "❌ Failed to upload buffered part #", ""},
      .backupRemoved = "",
  };
  return policy;
}

const SegmentPolicy& audioSegmentPolicy() {
  static const SegmentPolicy policy{
      .openingDelay = 300ms,
      .partsCheck = 300ms,
      .maxPartsInFlight = 4,
      .indexes = SegmentPolicy::Indexes::countMediaOnly,
      .backlog = SegmentPolicy::Backlog::readBack,
      .finalSegment = SegmentPolicy::FinalSegment::isNotAwaited,
      .failedFinalPart = SegmentPolicy::FailedFinalPart::endsTheUpload,
      .inspection = SegmentPolicy::Inspection::none,
      .uploadDelegateNotSet = AudioChunkError::uploadDelegateNotSet,
      .uploadFailed = AudioChunkError::uploadFailed,
      .backupBegun = "✅ Segment backup manager initialized for audio-only crash recovery with ID: ",
      .initializationReceived = "Received audio init segment, size: ",
      .mediaReceived = "Received audio media segment #",
      .segmentBuffered = audioSegmentBuffered,
      .stillBuffering = "⏳ Multipart not ready yet, buffering audio data (total: ",
      .opening = audioOpening,
      .opened = "✅ Multipart upload initialized for audio with fileId: ",
      .checkingBuffered = "📤 Checking for buffered audio data to upload after initialization (buffer: ",
      .handingOver = "Uploading audio fMP4 part #",
      .regularPart = {"🚀 Starting upload for part #", "✅ Part #", "❌ Audio part #", " upload failed"},
      .bufferedPart = {"🚀 Uploading buffered audio part #", "✅ Buffered audio part #",
                       "❌ Failed to upload buffered audio part #", ""},
      .backupRemoved = "✅ Segment backup cleaned up after successful upload ",
  };
  return policy;
}

}  // namespace quillbeam
