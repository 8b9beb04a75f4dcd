#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/Dispatch.h"
#include "platform/Files.h"
#include "platform/network/BackgroundTransfers.h"

namespace quillbeam {

/// Which part an upload task carries.
struct MacTaskInfo {
  std::string sessionId;
  int partNumber = 0;
  Path chunkFile;
  std::int64_t size = 0;
};

/// The parts that are under way: an entry from before its task is resumed until its completion has been dealt with.
/// Callable from any queue but the map's own; each call waits for it.
class UploadTaskMap {
 public:
  explicit UploadTaskMap(Dispatch& dispatch);

  void insert(UploadTaskId task, MacTaskInfo info);
  std::optional<MacTaskInfo> find(UploadTaskId task);
  void remove(UploadTaskId task);
  std::set<UploadTaskId> tasksOf(const std::string& sessionId);
  std::set<int> partsOf(const std::string& sessionId);

 private:
  std::map<UploadTaskId, MacTaskInfo> taskToPartMapping_ CONFINED_TO(*taskMappingQueue_);
  std::unique_ptr<DispatchQueue> taskMappingQueue_;
};

}  // namespace quillbeam
