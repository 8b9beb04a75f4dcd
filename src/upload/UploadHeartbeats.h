#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/TaskScope.h"
#include "platform/RepeatingTimer.h"
#include "upload/MacNativeApiClient.h"
#include "upload/UploadSessionTable.h"

namespace quillbeam {

/// Tells the service every 30 s that an upload is alive, so that it keeps the parts. A beat that fails is logged and
/// nothing else. Main queue.
class UploadHeartbeats {
 public:
  UploadHeartbeats(DispatchQueue& main, const Logger& logger, MacNativeApiClient& apiClient, UploadSessionTable& table)
      : main_(main), logger_(logger), apiClient_(apiClient), table_(table), tasks_(main) {}

  void startHeartbeat(const std::string& sessionId);
  void stopHeartbeat(const std::string& sessionId);
  void stopAll();

 private:
  void sendHeartbeat(const std::string& sessionId);

  DispatchQueue& main_;
  const Logger& logger_;
  MacNativeApiClient& apiClient_;
  UploadSessionTable& table_;
  std::map<std::string, std::unique_ptr<RepeatingTimer>> timers_;
  TaskScope tasks_;
};

}  // namespace quillbeam
