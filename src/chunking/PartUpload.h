#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "backup/SegmentBackupManager.h"
#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "chunking/ChunkUploadDelegate.h"
#include "chunking/PartBuffer.h"
#include "chunking/SegmentPolicy.h"
#include "chunking/VideoChunkWriterDelegate.h"
#include "platform/NotificationCenter.h"

namespace quillbeam {

/// A recording's bytes on their way to the upload delegate, in parts of 5 MiB. Main queue.
///
///     collecting ──opened──► sending ──finish──► closed
///         └──opening failed──► collecting          ▲
///     stopSending, from anywhere ──────────────────┘
///
/// With `SegmentPolicy::Backlog::readBack` at most `PartBuffer::maxHeldSize` (20 MiB) of unsent bytes and
/// `maxPartsInFlight` parts (20 MiB) are in memory, however long the service stalls; only segments that the backup
/// could not save come on top.
class PartUpload : public WeaklyHeld {
 public:
  PartUpload(DispatchQueue& main, NotificationCenter& notifications, const Logger& logger, const SegmentPolicy& policy,
             ChunkedRecording recording);

  void setDelegate(std::shared_ptr<ChunkUploadDelegate> delegate);
  void setObserver(VideoChunkWriterDelegate* observer) { observer_ = observer; }

  /// Opens the upload after a moment. `backup`, which stays until `finish` has ended, is where bytes are read back
  /// from.
  void begin(SegmentBackupManager& backup, std::string backupId);
  /// Bytes will be appended: they will be missing at the service when the rest was sent without them.
  void announce();
  enum class Taken { buffered, discarded };
  Taken append(const ByteChain& bytes, std::optional<FMP4SegmentInfo> savedAs);
  /// Bytes will never come: the backup, such as it is, stays.
  void noteMissingBytes(const Error& why);
  /// As many full parts as there are and as the delegate may hold.
  void sendParts();
  /// From now on no part goes anywhere; what is not sent is in the backup. `finish` makes no sense afterwards.
  void stopSending();
  /// Sends what is left, waits for all parts and has the upload completed.
  Task<void> finish();

  /// A hand-over failed, or bytes were discarded or could not be read back.
  bool lacksBytes() const { return bytesAreMissing_; }
  const std::set<int>& inFlight() const { return inFlightUploads_; }
  std::string inFlightText() const;  ///< "[1, 2]"
  std::size_t percentOfPart() const { return byteBuffer_.percentOfPart(); }
  /// Any queue.
  std::size_t bufferedBytes() const { return bufferedBytes_; }

 private:
  enum class Opening { notTried, scheduled, underWay, succeeded, failed };
  enum class PartKind { regular, buffered, final };

  template <class T, class Handler>
  auto onMain(Handler handler);
  const PartTexts& texts(PartKind kind) const;

  void open();
  void didOpen(Result<InitializeUploadResponse> answer);
  void didFailToOpen(const Error& error);
  Task<void> awaitOpening();

  void discardAll();
  bool maySendPart() const;
  Task<void> sendPartsInOrder();
  Task<void> readBack();
  void publishSize() { bufferedBytes_ = byteBuffer_.size(); }
  void sendPart(ByteChain part, PartKind kind);
  void logSending(int partNumber, std::size_t size, PartKind kind) const;
  void didSendPart(int partNumber, std::size_t size, PartKind kind, const Result<void>& sent);
  void report(const Error& error);

  Task<void> sendAllAndComplete();
  Task<void> sendRest();
  Task<void> sendFinalPart();
  Task<void> awaitFullParts();
  Task<void> awaitParts();
  Task<void> complete();

  DispatchQueue& main_;
  NotificationCenter& notifications_;
  const Logger& logger_;
  const SegmentPolicy& policy_;
  const ChunkedRecording recording_;
  std::shared_ptr<ChunkUploadDelegate> uploadDelegate_;
  VideoChunkWriterDelegate* observer_ = nullptr;
  SegmentBackupManager* backup_ = nullptr;
  std::string backupId_;

  Opening opening_ = Opening::notTried;
  std::optional<Error> openingError_;
  TimerHandle openingTimer_;
  PartBuffer byteBuffer_;
  std::atomic<std::size_t> bufferedBytes_ = 0;
  bool uploadBufferOverflowed_ = false;
  bool bytesAreMissing_ = false;  ///< at the service
  bool isSending_ = false;
  bool isClosed_ = false;  ///< no part follows
  int uploadedPartNumber_ = 0;
  int lastBufferedPart_ = 0;  ///< its bytes were there before the upload was open
  std::set<int> inFlightUploads_;
  std::optional<Result<void>> finalPart_;  ///< what became of it
  std::int64_t totalBytesUploaded_ = 0;
  TaskScope tasks_;
};

}  // namespace quillbeam
