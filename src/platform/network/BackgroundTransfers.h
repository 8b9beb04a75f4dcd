#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/network/Http.h"

namespace quillbeam {

/// Identifies an upload task for the life of its session; grows from 1, never reused.
enum class UploadTaskId : std::int64_t {};

enum class UploadTaskState {
  suspended,  ///< made, not resumed yet
  waiting,    ///< for a slot, or for a network route
  running,
};

struct UploadTaskInfo {
  UploadTaskId id{};
  UploadTaskState state = UploadTaskState::suspended;
  /// Body bytes that have been sent since the task was resumed; never shrinks.
  std::int64_t bytesSent = 0;
};

/// What a background session tells its owner, on a serial queue of the session's own.
class BackgroundTransferDelegate {
 public:
  virtual ~BackgroundTransferDelegate() = default;
  /// Once per resumed or cancelled task. An answer, whatever its status; no answer though nothing failed (nullopt: the
  /// connection was closed in order without one); or a `NetworkError`.
  virtual void uploadTaskDidComplete(UploadTaskId task, Result<std::optional<HttpResponse>> outcome) = 0;
  /// After the last of the running tasks has completed.
  virtual void backgroundSessionDidFinishEvents() = 0;
};

/// Uploads whose bodies are files. A task is listed from its making until its completion has been delivered; answers to
/// `listTasks` and completions come on one queue in one order, so that a listing never shows a task whose completion
/// was delivered before it, nor lacks one whose completion comes after it.
///
/// At most `mostRunningTransfers` run at a time, the rest wait in the order in which they were resumed; limits of time
/// count while a transfer runs. While no network route to a server exists at all, transfers to it wait without an end
/// and without failing. After the machine was suspended, running transfers begin again on new connections. Bodies are
/// read as they are sent, in pieces, from the file as it was when its transfer began (removing its name does no harm).
/// All methods from any thread.
class BackgroundTransferSession {
 public:
  /// What uploads in parallel to object stores settle on; more only splits the same uplink.
  static constexpr int mostRunningTransfers = 4;

  /// Cancels what is left without telling the delegate; returns when no callback runs any more. Not on the delegate's
  /// queue.
  virtual ~BackgroundTransferSession() = default;

  /// `request.body` is empty: the file is the body. Redirects are not followed.
  virtual UploadTaskId makeUploadTask(HttpRequest request, const Path& file) = 0;
  virtual void resume(UploadTaskId task) = 0;
  /// Completes it with `NetworkError::cancelled` unless it has completed already.
  virtual void cancel(UploadTaskId task) = 0;
  /// `answer` runs on the delegate's queue.
  virtual void listTasks(std::move_only_function<void(std::vector<UploadTaskInfo>)> answer) = 0;
};

struct BackgroundTransferOptions {
  std::string identifier;
  Duration requestTimeout = std::chrono::seconds(60);    ///< no byte moved for this long
  Duration resourceTimeout = std::chrono::seconds(600);  ///< one transfer, from its slot on
};

}  // namespace quillbeam
