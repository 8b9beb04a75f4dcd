#pragma once

#include <memory>
#include <optional>
#include <string>

#include "chunking/ChunkUploadDelegate.h"
#include "upload/MacNativeBackgroundUploadManager.h"
#include "upload/MacUploadSourceType.h"

namespace quillbeam {

/// One recording's way into the background upload manager: opens its session, hands over its parts, declares it
/// complete. The session belongs to the manager: it goes on when the adapter is gone. Main queue; completions run there
/// too, each exactly once, with `sessionInterrupted` when the process ends first. Errors pass through unchanged.
///
/// An adapter that was never asked to open a session hands its parts to the manager's active one, unless it is told not
/// to. One that was asked never does: its bytes must not end up in another recording's file.
class NativeUploadAdapter final : public ChunkUploadDelegate {
 public:
  /// Whose session an adapter without one of its own uses.
  enum class Sessions { activeOneToo, ownOnly };

  NativeUploadAdapter(MacNativeBackgroundUploadManager& uploadManager, MacUploadSourceType sourceType,
                      Sessions sessions = Sessions::activeOneToo)
      : uploadManager_(uploadManager), sourceType_(sourceType), sessions_(sessions) {}

  void initializeUpload(UploadDescription description, Initialized completion) override;
  void uploadChunk(ByteChain data, int partNumber, Done completion) override;
  void finalizeUpload(Done completion) override;
  std::optional<std::string> tempFileId() const override { return tempFileId_; }

  void setTempFileId(std::optional<std::string> tempFileId) override { tempFileId_ = std::move(tempFileId); }
  const std::optional<std::string>& sessionId() const { return opening_->sessionId; }
  /// What the service called the file of this adapter's session, while the manager runs it.
  std::optional<std::string> fileId() const;

 private:
  struct Opening {
    bool wasTried = false;
    std::optional<std::string> sessionId;
  };

  bool hasNoSessionToUse() const {
    return !opening_->sessionId && (opening_->wasTried || sessions_ == Sessions::ownOnly);
  }

  MacNativeBackgroundUploadManager& uploadManager_;
  const MacUploadSourceType sourceType_;
  const Sessions sessions_;
  std::optional<std::string> tempFileId_;
  const std::shared_ptr<Opening> opening_ = std::make_shared<Opening>();  // shared with what outlives the adapter
};

}  // namespace quillbeam
