#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "platform/linux/curl/CurlUploadQueue.h"

namespace quillbeam {

/// The face of a `CurlUploadQueue`: methods from any thread become work of the worker, in the order of the calls; what
/// the worker tells goes through one serial queue to the delegate.
class CurlBackgroundSession final : public BackgroundTransferSession {
 public:
  CurlBackgroundSession(CurlWorker& worker, CurlUploadQueue::Routes routes, std::unique_ptr<DispatchQueue> queue,
                        BackgroundTransferOptions options, BackgroundTransferDelegate& delegate);
  ~CurlBackgroundSession() override;

  UploadTaskId makeUploadTask(HttpRequest request, const Path& file) override;
  void resume(UploadTaskId task) override;
  void cancel(UploadTaskId task) override;
  void listTasks(std::move_only_function<void(std::vector<UploadTaskInfo>)> answer) override;

 private:
  CurlUploadQueue::Events events();
  /// Runs `work` on the delegate's queue unless the session is being destroyed.
  void tell(Closure work);

  CurlWorker& worker_;
  BackgroundTransferDelegate& delegate_;
  std::unique_ptr<DispatchQueue> queue_;
  std::atomic<std::int64_t> lastTask_ = 0;
  std::atomic<bool> isClosing_ = false;
  std::unique_ptr<CurlUploadQueue> uploads_ CONFINED_TO(worker_);
};

}  // namespace quillbeam
