#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "backup/SegmentBackupManager.h"
#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "chunking/ChunkUploadDelegate.h"
#include "chunking/PartBuffer.h"
#include "chunking/VideoChunkWriterDelegate.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// A recording's segments on their way: each is saved in the backup, then cut into parts of 5 MiB, which go to the
/// upload delegate. Nothing is lost when the service fails: the backup stays until the upload has completed with every
/// byte. Main queue; disk work happens elsewhere, so that a slow disk delays parts and nothing else.
///
///     collecting ──initialised──► sending ──finishUpload──► done
///         └──────initialisation failed──► collecting
class SegmentStream : public WeaklyHeld {
 public:
  struct Recording {
    std::string teamId;
    std::string folderId;
    std::string fileName;
    std::string contentType;
    SegmentBackupRecordingType type = SegmentBackupRecordingType::video;
    std::optional<Path> localFile;
  };

  SegmentStream(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                const Logger& logger, Recording recording);

  void setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate);
  void setObserver(VideoChunkWriterDelegate* observer) { observer_ = observer; }

  /// Starts the backup and, half a second later, opens the upload.
  void begin();
  /// Segments are handled one after the other, in this order.
  void receive(Segment segment);
  /// From now on the next media segment is the last one.
  void expectFinalSegment();
  /// Until all that was received is handled and the final segment is among it; at most 2 s longer than the former.
  Task<void> awaitFinalSegment();
  /// Sends what is left, waits for all parts and has the upload completed.
  Task<void> finishUpload();
  /// For the end of the process: what was received is in the backup when this resumes. What is left of a part stays there.
  Task<void> settleBackup();

  std::size_t segmentIndex() const { return static_cast<std::size_t>(segmentIndex_); }
  bool hasInitializationSegment() const { return hasInitializationSegment_; }
  const std::set<int>& inFlightUploads() const { return inFlightUploads_; }
  std::string inFlightText() const;  ///< "[1, 2]"
  /// Any queue.
  std::size_t bufferedBytes() const { return bufferedBytes_; }

 private:
  enum class Opening { notTried, scheduled, underWay, succeeded, failed };
  enum class PartKind { regular, buffered, final };

  void logArrival(const Segment& segment);
  Task<void> handleSegments();
  Task<void> handle(Segment segment);
  void takeIn(const Segment& segment);
  void discard();
  template <class T, class Handler>
  auto onMain(Handler handler);

  void openUpload();
  void didOpen(Result<InitializeUploadResponse> answer);
  void didFailToOpen(const Error& error);
  Task<void> awaitOpening();

  void cutParts(PartKind kind);
  void sendPart(ByteChain part, PartKind kind);
  void didSendPart(int partNumber, std::size_t size, PartKind kind, const Result<void>& sent);
  Task<void> sendRest();
  Task<void> sendFinalPart();
  Task<void> awaitParts();
  Task<void> completeUpload();
  Task<void> keepOrRemoveBackup();
  void report(const Error& error);

  Platform& platform_;
  DispatchQueue& main_;
  StoredRecordings& storedRecordings_;
  NotificationCenter& notifications_;
  const Logger& logger_;
  const Recording recording_;
  std::shared_ptr<ChunkUploadDelegate> uploadDelegate_;
  VideoChunkWriterDelegate* observer_ = nullptr;

  std::unique_ptr<SegmentBackupManager> segmentBackupManager_;
  std::optional<std::string> segmentBackupId_;
  std::deque<Segment> waiting_;
  bool isHandling_ = false;
  PartBuffer byteBuffer_;
  std::atomic<std::size_t> bufferedBytes_ = 0;
  std::int64_t segmentIndex_ = 0;
  bool hasInitializationSegment_ = false;
  bool isAwaitingFinalSegment_ = false;
  bool uploadBufferOverflowed_ = false;
  bool bytesAreMissing_ = false;  ///< at the service: discarded, or a hand-over failed

  Opening opening_ = Opening::notTried;
  TimerHandle openingTimer_;
  int uploadedPartNumber_ = 0;
  std::set<int> inFlightUploads_;
  bool restIsSent_ = false;                ///< or there was none; no part follows
  std::optional<Result<void>> finalPart_;  ///< what became of it
  std::int64_t totalBytesUploaded_ = 0;
  TaskScope tasks_;
};

}  // namespace quillbeam
