#include "platform/sim/SimBackgroundSession.h"

#include <algorithm>
#include <ranges>
#include <utility>

namespace quillbeam {

void SimBackgroundSession::Transfer::leaveWire() {
  bytesBefore = bytesSent();
  transmission.reset();
}

SimBackgroundSession::SimBackgroundSession(SimNetwork& network, std::unique_ptr<DispatchQueue> queue,
                                           BackgroundTransferOptions options, BackgroundTransferDelegate& delegate,
                                           Gone gone)
    : network_(network),
      options_(std::move(options)),
      delegate_(delegate),
      gone_(std::move(gone)),
      queue_(std::move(queue)) {}

SimBackgroundSession::~SimBackgroundSession() {
  isClosing_ = true;  // the queue runs what waits on it once more
  queue_.reset();
  gone_(this);
}

UploadTaskId SimBackgroundSession::makeUploadTask(HttpRequest request, const Path& file) {
  const UploadTaskId task{++lastTask_};
  transfers_.emplace(task, Transfer{.request = std::move(request), .file = file});
  return task;
}

void SimBackgroundSession::resume(UploadTaskId task) {
  const auto found = transfers_.find(task);
  if (found == transfers_.end() || found->second.state != UploadTaskState::suspended) return;
  found->second.state = UploadTaskState::waiting;
  found->second.place = ++lastPlace_;
  startWaitingSoon();
}

void SimBackgroundSession::cancel(UploadTaskId task) {
  const auto found = transfers_.find(task);
  if (found != transfers_.end()) finish(task, found->second, NetworkError::cancelled);
}

void SimBackgroundSession::listTasks(std::move_only_function<void(std::vector<UploadTaskInfo>)> answer) {
  queue_->async(weakly(this, [answer = std::move(answer)](SimBackgroundSession& self) mutable {
    if (!self.isClosing_) answer(self.listing());
  }));
}

std::vector<UploadTaskInfo> SimBackgroundSession::listing() const {
  std::vector<UploadTaskInfo> tasks;
  for (const auto& [task, transfer] : transfers_) {
    tasks.push_back({.id = task, .state = transfer.state, .bytesSent = transfer.bytesSent()});
  }
  return tasks;
}

// ---- on the wire

void SimBackgroundSession::startWaitingSoon() {
  network_.wire().async(weakly(this, [](SimBackgroundSession& self) { self.startWaiting(); }));
}

void SimBackgroundSession::startWaiting() {
  while (network_.hasRoute() && runningTransfers() < mostRunningTransfers) {
    auto waiting = std::ranges::filter_view(transfers_, [](auto& entry) { return entry.second.isWaiting(); });
    const auto next = std::ranges::min_element(waiting, {}, [](const auto& entry) { return entry.second.place; });
    if (next == waiting.end()) return;
    start(next->first, next->second);
  }
}

void SimBackgroundSession::start(UploadTaskId task, Transfer& transfer) {
  transfer.state = UploadTaskState::running;
  auto body = network_.files().read(transfer.file);
  if (!body) {
    finish(task, transfer, Error(NetworkError::bodyUnreadable).withUnderlying(std::move(body).error()));
    return;
  }
  const SimLimits limits{std::min(transfer.request.timeout, options_.requestTimeout), options_.resourceTimeout};
  auto ended = [this, task, &transfer](SimTransmission::Outcome outcome) {
    finish(task, transfer, std::move(outcome));
  };
  const auto transmission =
      std::make_shared<SimTransmission>(network_, transfer.request, *std::move(body), limits, std::move(ended));
  transfer.transmission = transmission;
  transmission->start();
}

void SimBackgroundSession::beginAgain() {
  for (auto& [task, transfer] : transfers_) {
    if (!transfer.isRunning()) continue;
    transfer.leaveWire();
    transfer.state = UploadTaskState::waiting;
  }
  startWaitingSoon();
}

int SimBackgroundSession::runningTransfers() const {
  return static_cast<int>(std::ranges::count_if(transfers_, [](auto& entry) { return entry.second.isRunning(); }));
}

// ---- outcomes

void SimBackgroundSession::finish(UploadTaskId task, Transfer& transfer, SimTransmission::Outcome outcome) {
  if (transfer.isFinished) return;
  transfer.isFinished = true;
  transfer.leaveWire();
  queue_->async(weakly(this, [task, outcome = std::move(outcome)](SimBackgroundSession& self) mutable {
    self.deliver(task, std::move(outcome));
  }));
  startWaitingSoon();
}

void SimBackgroundSession::completeUnknownTask(HttpResponse response) {
  queue_->async(weakly(this, [task = UploadTaskId{++lastTask_}, response](SimBackgroundSession& self) {
    self.deliver(task, response);
  }));
}

void SimBackgroundSession::deliver(UploadTaskId task, SimTransmission::Outcome outcome) {
  if (isClosing_) return;
  transfers_.erase(task);
  delegate_.uploadTaskDidComplete(task, std::move(outcome));
  const bool allDone = std::ranges::all_of(
      transfers_, [](const auto& entry) { return entry.second.state == UploadTaskState::suspended; });
  if (allDone) delegate_.backgroundSessionDidFinishEvents();
}

}  // namespace quillbeam
