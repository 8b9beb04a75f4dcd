#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "backup/SegmentBackupManager.h"
#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "chunking/ChunkedRecording.h"
#include "chunking/PartUpload.h"
#include "chunking/SegmentPolicy.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// A recording's segments on their way: each is saved in the backup, then handed to the upload (`PartUpload`). Nothing
/// is lost when the service fails: the backup stays until the upload has completed with every byte. Main queue; disk
/// work happens elsewhere, so that a slow disk delays parts and nothing else.
class SegmentStream : public WeaklyHeld {
 public:
  using Recording = ChunkedRecording;

  SegmentStream(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                const Logger& logger, const SegmentPolicy& policy, Recording recording);

  void setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate) { upload_.setDelegate(std::move(delegate)); }
  void setObserver(VideoChunkWriterDelegate* observer) { upload_.setObserver(observer); }

  /// Passes on to `receive` what a writer delivers on its own thread.
  SegmentSink sink();

  /// Starts the backup and, after a moment, opens the upload.
  void begin();
  /// Segments are handled one after the other, in this order.
  void receive(Segment segment);
  /// From now on the next media segment is the last one; there is none when the timeline is covered up to `end`.
  void expectFinalSegment(std::optional<MediaTime> end);
  /// Until all that was received is handled and the final segment is among it; at most 2 s longer than the former.
  Task<void> awaitFinalSegment();
  /// Until all that was received is handled: in the backup, and taken in.
  Task<void> awaitHandled();
  /// Sends what is left, waits for all parts and has the upload completed.
  Task<void> finishUpload();
  /// For the end of the process: nothing is sent from now on; what comes goes into the backup and stays there.
  void stopSending() { upload_.stopSending(); }
  /// No segment follows although there was more to write: what the upload gets is not the whole recording.
  void writerFailed(const Error& error);

  std::size_t segmentIndex() const { return static_cast<std::size_t>(segmentIndex_); }
  bool hasInitializationSegment() const { return hasInitializationSegment_; }
  const std::set<int>& inFlightUploads() const { return upload_.inFlight(); }
  std::string inFlightText() const { return upload_.inFlightText(); }
  /// Any queue.
  std::size_t bufferedBytes() const { return upload_.bufferedBytes(); }

 private:
  void logArrival(const Segment& segment);
  Task<void> handleSegments();
  Task<void> handle(Segment segment);
  void takeIn(const Segment& segment, std::optional<FMP4SegmentInfo> saved);
  bool hasEverything() const;
  Task<void> keepOrRemoveBackup();

  Platform& platform_;
  DispatchQueue& main_;
  StoredRecordings& storedRecordings_;
  const Logger& logger_;
  const SegmentPolicy& policy_;
  const Recording recording_;
  std::unique_ptr<SegmentBackupManager> segmentBackupManager_;
  PartUpload upload_;
  std::deque<Segment> waiting_;
  bool isHandling_ = false;
  std::int64_t segmentIndex_ = 0;
  bool hasInitializationSegment_ = false;
  bool isAwaitingFinalSegment_ = false;
  std::optional<MediaTime> coveredEnd_;   ///< of the timeline, by what was received
  std::optional<MediaTime> expectedEnd_;  ///< of the timeline
  TaskScope tasks_;
};

}  // namespace quillbeam
