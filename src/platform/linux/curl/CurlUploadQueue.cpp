#include "platform/linux/curl/CurlUploadQueue.h"

#include <algorithm>

namespace quillbeam {

namespace {

/// What a machine that has just lost its network sees.
bool mayBeLackOfRoute(const CurlExchange::Outcome& outcome) {
  if (outcome) return false;
  const Error& error = outcome.error();
  return error.is(NetworkError::cannotFindHost) || error.is(NetworkError::cannotConnect) ||
         error.is(NetworkError::connectionLost) || error.is(NetworkError::timedOut);
}

/// Asks once per host.
class RoutesNow {
 public:
  explicit RoutesNow(RouteProbe& probe) : probe_(probe) {}
  bool leadTo(const std::string& host) {
    // Without a host, it is not the route that is missing.
    if (host.empty()) return true;
    const auto [known, isNew] = known_.try_emplace(host, false);
    if (isNew) known->second = probe_.hasRoute(host);
    return known->second;
  }

 private:
  RouteProbe& probe_;
  std::map<std::string, bool> known_;
};

}  // namespace

CurlUploadQueue::CurlUploadQueue(CurlWorker& worker, Routes routes, BackgroundTransferOptions options, Events events)
    : worker_(worker), routes_(routes), options_(std::move(options)), events_(std::move(events)) {}

CurlUploadQueue::~CurlUploadQueue() {
  worker_.assertCurrent();
  for (const auto& [task, upload] : uploads_) {
    if (upload.exchange != nullptr) worker_.forget(*upload.exchange);
  }
}

std::int64_t CurlUploadQueue::Upload::bytesSent() const {
  return std::max(bytesSentBefore, exchange == nullptr ? 0 : exchange->bytesSent());
}

void CurlUploadQueue::make(UploadTaskId task, HttpRequest request, const Path& file) {
  worker_.assertCurrent();
  std::string host = hostOf(request.url);
  uploads_.emplace(task, Upload{.request = std::move(request), .file = file, .host = std::move(host)});
}

void CurlUploadQueue::resume(UploadTaskId task) {
  worker_.assertCurrent();
  const auto found = uploads_.find(task);
  if (found == uploads_.end() || found->second.state != UploadTaskState::suspended) return;
  found->second.state = UploadTaskState::waiting;
  found->second.place = ++lastPlace_;
  waiting_.emplace(found->second.place, task);
  proceed();
}

void CurlUploadQueue::cancel(UploadTaskId task) {
  worker_.assertCurrent();
  const auto found = uploads_.find(task);
  if (found == uploads_.end()) return;
  if (CurlExchange* exchange = found->second.exchange) {
    worker_.forget(*exchange);
    --running_;
  }
  complete(task, NetworkError::cancelled);
  proceed();
}

std::vector<UploadTaskInfo> CurlUploadQueue::list() const {
  worker_.assertCurrent();
  std::vector<UploadTaskInfo> tasks;
  tasks.reserve(uploads_.size());
  for (const auto& [task, upload] : uploads_) {
    tasks.push_back({.id = task, .state = upload.state, .bytesSent = upload.bytesSent()});
  }
  return tasks;
}

// ---- from task to task

void CurlUploadQueue::proceed() {
  startWaiting();
  const bool isQuiet = running_ == 0 && waiting_.empty();
  if (isQuiet && std::exchange(owesFinished_, false)) events_.finished();
}

void CurlUploadQueue::startWaiting() {
  RoutesNow routes(routes_.probe);
  for (auto next = waiting_.begin();
       next != waiting_.end() && running_ < BackgroundTransferSession::mostRunningTransfers;) {
    const auto [place, task] = *next++;
    Upload& upload = uploads_.at(task);
    if (!routes.leadTo(upload.host)) {
      lookForRouteLater();
      continue;
    }
    waiting_.erase({place, task});
    if (auto begun = begin(task, upload); !begun) complete(task, std::move(begun).error());
  }
}

Result<void> CurlUploadQueue::begin(UploadTaskId task, Upload& upload) {
  if (!upload.body) {
    TRY(upload.body, BodyFile::open(upload.file));
  }
  const ExchangeLimits limits{std::min(upload.request.timeout, options_.requestTimeout), options_.resourceTimeout};
  TRY(auto exchange,
      CurlExchange::create(upload.request, upload.body, limits,
                           [this, task](CurlExchange::Outcome outcome) { ended(task, std::move(outcome)); }));
  upload.exchange = &worker_.start(std::move(exchange));
  upload.state = UploadTaskState::running;
  ++running_;
  return success;
}

void CurlUploadQueue::ended(UploadTaskId task, CurlExchange::Outcome outcome) {
  Upload& upload = uploads_.at(task);
  upload.bytesSentBefore = upload.bytesSent();
  upload.exchange = nullptr;
  --running_;
  if (mayBeLackOfRoute(outcome) && !routes_.probe.hasRoute(upload.host)) {
    waitForRoute(task, upload);
  } else {
    complete(task, std::move(outcome));
  }
  proceed();
}

void CurlUploadQueue::waitForRoute(UploadTaskId task, Upload& upload) {
  upload.state = UploadTaskState::waiting;
  waiting_.emplace(upload.place, task);  // in front of all that were resumed after it
}

void CurlUploadQueue::complete(UploadTaskId task, CurlExchange::Outcome outcome) {
  waiting_.erase({uploads_.at(task).place, task});
  uploads_.erase(task);
  owesFinished_ = true;
  events_.completed(task, std::move(outcome));
}

void CurlUploadQueue::lookForRouteLater() {
  if (std::exchange(looksForRoute_, true)) return;
  worker_.after(routes_.retryInterval, weakly(this, [](CurlUploadQueue& self) {
                  self.looksForRoute_ = false;
                  self.proceed();
                }));
}

}  // namespace quillbeam
