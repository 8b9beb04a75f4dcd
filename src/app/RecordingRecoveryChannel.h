#pragma once

#include "backup/StoredRecordings.h"
#include "base/TaskScope.h"
#include "channels/MethodChannel.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"

namespace quillbeam {

/// "io.quillbeam.app.recording_recovery": recordings whose upload never completed, for the UI layer to rebuild or
/// remove. Main queue; the disk work is done elsewhere, in the order of the calls.
class RecordingRecoveryChannel {
 public:
  RecordingRecoveryChannel(BinaryMessenger& messenger, Dispatch& dispatch, StoredRecordings& recordings,
                           const Logger& logger);

 private:
  void incompleteRecordings(Value arguments, MethodResult result);
  void recover(Value arguments, MethodResult result);
  void cleanUp(Value arguments, MethodResult result);
  void cleanUpOld(Value arguments, MethodResult result);
  /// Answers what `work` returns.
  template <class Work>
  void answer(MethodResult result, Work work);

  StoredRecordings& recordings_;
  const Logger& logger_;
  MethodChannel channel_;
  std::unique_ptr<DispatchQueue> diskQueue_;
  TaskScope tasks_;
};

}  // namespace quillbeam
