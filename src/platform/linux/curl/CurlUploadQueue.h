#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/Weakly.h"
#include "platform/linux/curl/CurlWorker.h"
#include "platform/linux/curl/RouteProbe.h"
#include "platform/network/BackgroundTransfers.h"

namespace quillbeam {

/// A background session's tasks, on the worker. Tasks wait here and not in libcurl, where waiting would count against
/// the limits of time and hold files open.
///
///     suspended ──resume──► waiting ──slot and route──► running ──outcome──► gone
///                              ▲─────no route (any more)───┘
///     cancel leads from everywhere to gone
class CurlUploadQueue : public WeaklyHeld {
 public:
  /// On the worker.
  struct Events {
    std::function<void(UploadTaskId, CurlExchange::Outcome)> completed;
    /// After the last of those that were neither suspended nor gone has completed.
    std::function<void()> finished;
  };
  struct Routes {
    RouteProbe& probe;
    Duration retryInterval;  ///< how often a missing route is looked for again
  };

  CurlUploadQueue(CurlWorker& worker, Routes routes, BackgroundTransferOptions options, Events events);
  ~CurlUploadQueue();

  void make(UploadTaskId task, HttpRequest request, const Path& file);
  void resume(UploadTaskId task);
  void cancel(UploadTaskId task);
  std::vector<UploadTaskInfo> list() const;

 private:
  struct Upload {
    HttpRequest request;
    Path file;
    std::string host;
    UploadTaskState state = UploadTaskState::suspended;
    std::int64_t place = 0;  // among the resumed ones
    /// Open from the beginning of the transfer on, even when it waits again.
    std::shared_ptr<const BodyFile> body = nullptr;
    CurlExchange* exchange = nullptr;  // while it runs
    std::int64_t bytesSentBefore = 0;

    std::int64_t bytesSent() const;
  };

  void proceed();
  void startWaiting();
  Result<void> begin(UploadTaskId task, Upload& upload);
  void ended(UploadTaskId task, CurlExchange::Outcome outcome);
  void waitForRoute(UploadTaskId task, Upload& upload);
  void complete(UploadTaskId task, CurlExchange::Outcome outcome);
  void lookForRouteLater();

  CurlWorker& worker_;
  const Routes routes_;
  const BackgroundTransferOptions options_;
  const Events events_;
  std::map<UploadTaskId, Upload> uploads_;
  std::set<std::pair<std::int64_t, UploadTaskId>> waiting_;  // by place
  std::int64_t lastPlace_ = 0;
  int running_ = 0;
  bool looksForRoute_ = false;
  bool owesFinished_ = false;
};

}  // namespace quillbeam
