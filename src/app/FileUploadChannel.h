#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/TaskScope.h"
#include "channels/MethodChannel.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "upload/FileUpload.h"
#include "upload/MacNativeBackgroundUploadManager.h"

namespace quillbeam {

/// "io.quillbeam.app.file_upload": uploads of files that lie on this machine, and a close look at all uploads of this
/// process, for the command line. Methods:
///
/// - "startFileUpload" {"filePath", "teamId", "folderId", "fileName", "contentType": strings}: begins, and answers an
///   identifier (string) for the next two.
/// - "getFileUploadStatus" {"id"}: map of "phase" ("opening", "sending", "finishing", "ended"), "sessionId", "fileId"
///   (strings, empty while not known), "totalBytes", "confirmedBytes", "bytesInFlight", "totalParts", "confirmedParts"
///   (integers), "lastError" (string or nil: the last failure of a part), "error", "errorDomain" (strings or nil) and
///   "errorCode" (integer or nil): why it ended without a file.
/// - "stopFileUpload" {"id"}: aborts it while parts are still to come; nil.
/// - "abortUploadSession" {"sessionId"}: aborts a session, also one that no process runs; nil, or "ABORT_FAILED".
/// - "getUploadTransfers": list of the sessions of this process, maps of "sessionId", "state" (strings),
///   "confirmedBytes", "bytesInFlight", "activeParts", "confirmedParts", "expectedParts" (integers; the last 0 while it
///   is not known) and "isCurrent" (whether it is the newest).
///
/// Wrong arguments: "INVALID_ARGUMENTS". Main queue.
class FileUploadChannel {
 public:
  FileUploadChannel(BinaryMessenger& messenger, Platform& platform, MacNativeBackgroundUploadManager& manager,
                    NotificationCenter& notifications);

 private:
  void start(Value arguments, MethodResult result);
  void status(Value arguments, MethodResult result);
  void stop(Value arguments, MethodResult result);
  void abortSession(Value arguments, MethodResult result);
  void transfers(Value arguments, MethodResult result);
  FileUpload* find(const Value& arguments);
  Task<ValueList> describeTransfers();

  Platform& platform_;
  MacNativeBackgroundUploadManager& manager_;
  NotificationCenter& notifications_;
  MethodChannel channel_;
  std::map<std::string, std::unique_ptr<FileUpload>> uploads_;
  TaskScope tasks_;
};

}  // namespace quillbeam
