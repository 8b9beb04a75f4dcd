#include "platform/linux/curl/CurlBackgroundSession.h"

#include <utility>

namespace quillbeam {

CurlBackgroundSession::CurlBackgroundSession(CurlWorker& worker, CurlUploadQueue::Routes routes,
                                             std::unique_ptr<DispatchQueue> queue, BackgroundTransferOptions options,
                                             BackgroundTransferDelegate& delegate)
    : worker_(worker),
      delegate_(delegate),
      queue_(std::move(queue)),
      uploads_(std::make_unique<CurlUploadQueue>(worker, routes, std::move(options), events())) {}

CurlBackgroundSession::~CurlBackgroundSession() {
  isClosing_ = true;
  worker_.sync([this] {
    worker_.assertCurrent();
    uploads_.reset();
  });
  queue_.reset();  // waits for the callback that may be running
}

CurlUploadQueue::Events CurlBackgroundSession::events() {
  return {.completed =
              [this](UploadTaskId task, CurlExchange::Outcome outcome) {
                tell([this, task, outcome = std::move(outcome)]() mutable {
                  delegate_.uploadTaskDidComplete(task, std::move(outcome));
                });
              },
          .finished = [this] { tell([this] { delegate_.backgroundSessionDidFinishEvents(); }); }};
}

void CurlBackgroundSession::tell(Closure work) {
  queue_->async([this, work = std::move(work)]() mutable {
    if (!isClosing_) work();
  });
}

UploadTaskId CurlBackgroundSession::makeUploadTask(HttpRequest request, const Path& file) {
  const UploadTaskId task{++lastTask_};
  worker_.async([this, task, request = std::move(request), file]() mutable {
    worker_.assertCurrent();
    uploads_->make(task, std::move(request), file);
  });
  return task;
}

void CurlBackgroundSession::resume(UploadTaskId task) {
  worker_.async([this, task] {
    worker_.assertCurrent();
    uploads_->resume(task);
  });
}

void CurlBackgroundSession::cancel(UploadTaskId task) {
  worker_.async([this, task] {
    worker_.assertCurrent();
    uploads_->cancel(task);
  });
}

void CurlBackgroundSession::listTasks(std::move_only_function<void(std::vector<UploadTaskInfo>)> answer) {
  worker_.async([this, answer = std::move(answer)]() mutable {
    worker_.assertCurrent();
    tell([answer = std::move(answer), tasks = uploads_->list()]() mutable { answer(std::move(tasks)); });
  });
}

}  // namespace quillbeam
