#include "upload/NativeUploadAdapter.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

/// Answers exactly once: with an interruption when it is dropped unanswered.
template <class T>
class Answer {
 public:
  using Completion = std::move_only_function<void(Result<T>)>;

  explicit Answer(Completion completion) : completion_(std::move(completion)) {}
  Answer(Answer&& other) noexcept : completion_(std::exchange(other.completion_, {})) {}
  ~Answer() { (*this)(MacBackgroundUploadError::sessionInterrupted); }

  void operator()(Result<T> result) {
    if (auto completion = std::exchange(completion_, {})) completion(std::move(result));
  }

 private:
  Completion completion_;
};

}  // namespace

void NativeUploadAdapter::initializeUpload(UploadDescription description, Initialized completion) {
  opening_->wasTried = true;
  UploadRequest request{.teamId = std::move(description.teamId),
                        .folderId = std::move(description.folderId),
                        .fileName = std::move(description.fileName),
                        .contentType = std::move(description.contentType),
                        .source = sourceType_,
                        .localBackupPath = std::move(description.localBackupPath),
                        .segmentBackupId = std::move(description.segmentBackupId),
                        .tempFileId = tempFileId_};
  auto done = [opening = opening_,
               answer = Answer(std::move(completion))](const Result<MacNativeUploadSession>& started) mutable {
    if (!started) return answer(started.error());
    opening->sessionId = started->id;
    answer(InitializeUploadResponse{started->fileId});
  };
  uploadManager_.detached(uploadManager_.startSession(std::move(request)), std::move(done));
}

void NativeUploadAdapter::uploadChunk(ByteChain data, int partNumber, Done completion) {
  Answer answer(std::move(completion));
  if (hasNoSessionToUse()) return answer(MacBackgroundUploadError::noActiveSession);
  auto upload = uploadManager_.uploadChunk(std::move(data), partNumber, opening_->sessionId);
  auto done = [answer = std::move(answer)](Result<void> handedOver) mutable { answer(std::move(handedOver)); };
  uploadManager_.detached(std::move(upload), std::move(done));
}

void NativeUploadAdapter::finalizeUpload(Done completion) {
  if (hasNoSessionToUse()) return completion(MacBackgroundUploadError::noActiveSession);
  const auto session =
      opening_->sessionId ? uploadManager_.getSession(*opening_->sessionId) : uploadManager_.activeSession();
  if (!session) return completion(MacBackgroundUploadError::noActiveSession);
  // Every part that was handed over is in exactly one of the three lists.
  const std::size_t handedOver =
      session->uploadedParts.size() + session->pendingParts.size() + session->failedParts.size();
  const int totalParts = std::max(session->nextPartNumber - 1, static_cast<int>(handedOver));
  uploadManager_.markRecordingComplete(totalParts, opening_->sessionId, std::move(completion));
}

std::optional<std::string> NativeUploadAdapter::fileId() const {
  if (!opening_->sessionId) return std::nullopt;
  const auto session = uploadManager_.getSession(*opening_->sessionId);
  return session ? std::optional(session->fileId) : std::nullopt;
}

}  // namespace quillbeam
