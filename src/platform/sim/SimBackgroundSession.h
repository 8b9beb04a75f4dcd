#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "base/Weakly.h"
#include "platform/sim/SimNetwork.h"
#include "platform/sim/SimTransmission.h"

namespace quillbeam {

/// Transfers whose bodies come from the simulated files.
///
///     suspended ──resume──► waiting ──slot and route──► running ──outcome──► (finished, until it is delivered)
///                              ▲──────connection broken─────┘
///     cancel leads from everywhere to finished
class SimBackgroundSession final : public BackgroundTransferSession, public WeaklyHeld {
 public:
  using Gone = std::function<void(SimBackgroundSession*)>;

  SimBackgroundSession(SimNetwork& network, std::unique_ptr<DispatchQueue> queue, BackgroundTransferOptions options,
                       BackgroundTransferDelegate& delegate, Gone gone);
  ~SimBackgroundSession() override;

  UploadTaskId makeUploadTask(HttpRequest request, const Path& file) override;
  void resume(UploadTaskId task) override;
  void cancel(UploadTaskId task) override;
  void listTasks(std::move_only_function<void(std::vector<UploadTaskInfo>)> answer) override;

  // The network's side.

  /// Starts what waits, as slots and the route allow.
  void startWaitingSoon();
  /// Running transfers wait again, then start anew.
  void beginAgain();
  void completeUnknownTask(HttpResponse response);
  int runningTransfers() const;

 private:
  struct Transfer {
    HttpRequest request;
    Path file;
    UploadTaskState state = UploadTaskState::suspended;
    bool isFinished = false;
    std::int64_t place = 0;        // among the resumed ones
    std::int64_t bytesBefore = 0;  // on connections that are gone, the most that one of them sent
    std::shared_ptr<SimTransmission> transmission = nullptr;

    bool isRunning() const { return state == UploadTaskState::running && !isFinished; }
    bool isWaiting() const { return state == UploadTaskState::waiting && !isFinished; }
    std::int64_t bytesSent() const { return std::max(bytesBefore, transmission ? transmission->bytesSent() : 0); }
    void leaveWire();
  };

  void startWaiting();
  void start(UploadTaskId task, Transfer& transfer);
  void finish(UploadTaskId task, Transfer& transfer, SimTransmission::Outcome outcome);
  void deliver(UploadTaskId task, SimTransmission::Outcome outcome);
  std::vector<UploadTaskInfo> listing() const;

  SimNetwork& network_;
  BackgroundTransferOptions options_;
  BackgroundTransferDelegate& delegate_;
  Gone gone_;
  bool isClosing_ = false;
  std::int64_t lastTask_ = 0;
  std::int64_t lastPlace_ = 0;
  std::map<UploadTaskId, Transfer> transfers_;  // until their completion has been delivered
  std::unique_ptr<DispatchQueue> queue_;        // the delegate's
};

}  // namespace quillbeam
