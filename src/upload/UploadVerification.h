#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/Weakly.h"
#include "platform/Logging.h"
#include "platform/RepeatingTimer.h"
#include "platform/network/BackgroundTransfers.h"
#include "upload/UploadSessionTable.h"
#include "upload/UploadTaskMap.h"

namespace quillbeam {

/// Looks after the last parts of a finished recording: every 10 s, at most 8 times, it restarts parts that wait without
/// a transfer (also failed ones with attempts left, whose retry did not get as far as a transfer), and from the third
/// time on cancels transfers that have not moved a byte since the time before; transfers that wait for their turn are
/// left alone. Main queue.
class UploadVerification : public WeaklyHeld {
 public:
  using RetryPart = std::function<void(int partNumber, const std::string& sessionId)>;
  using RetryIdleParts = std::function<void(const std::string& sessionId)>;

  struct Neighbours {
    DispatchQueue& main;
    const Logger& logger;
    UploadSessionTable& table;
    UploadTaskMap& taskMap;
    BackgroundTransferSession& backgroundSession;
    RetryPart retryPart;            // both called on the main queue
    RetryIdleParts retryIdleParts;  // failed parts that have attempts left and nothing under way
  };
  explicit UploadVerification(Neighbours neighbours) : neighbours_(std::move(neighbours)) {}

  void startUploadCompletionVerification(const std::string& sessionId);
  void stopUploadCompletionVerification(const std::string& sessionId);

 private:
  using BytesSent = std::map<UploadTaskId, std::int64_t>;
  struct Verification {
    int attempts = 0;
    BytesSent bytesSent;  ///< of the transfers that ran at the last pass
    std::unique_ptr<RepeatingTimer> timer;
  };

  void verifyUploadCompletion(const std::string& sessionId);
  void examine(const std::string& sessionId, int attempt, const BytesSent& before);
  // The answer of the background session, on its queue: no completion comes between the look and the deed.
  void judge(const std::string& sessionId, int attempt, const BytesSent& before,
             const std::vector<UploadTaskInfo>& tasks);
  void restartStuckParts(const std::string& sessionId);
  void cancelStuckTasks(const std::string& sessionId, const BytesSent& before, const BytesSent& now);

  const Neighbours neighbours_;
  std::map<std::string, Verification> verifications_;
};

}  // namespace quillbeam
