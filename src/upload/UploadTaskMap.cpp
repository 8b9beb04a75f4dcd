#include "upload/UploadTaskMap.h"

#include <utility>

namespace quillbeam {

UploadTaskMap::UploadTaskMap(Dispatch& dispatch)
    : taskMappingQueue_(dispatch.makeSerialQueue("io.quillbeam.macos.upload.taskmapping")) {}

void UploadTaskMap::insert(UploadTaskId task, MacTaskInfo info) {
  taskMappingQueue_->sync([&] {
    taskMappingQueue_->assertCurrent();
    taskToPartMapping_.insert_or_assign(task, std::move(info));
  });
}

std::optional<MacTaskInfo> UploadTaskMap::find(UploadTaskId task) {
  std::optional<MacTaskInfo> info;
  taskMappingQueue_->sync([&] {
    taskMappingQueue_->assertCurrent();
    const auto found = taskToPartMapping_.find(task);
    if (found != taskToPartMapping_.end()) info = found->second;
  });
  return info;
}

void UploadTaskMap::remove(UploadTaskId task) {
  taskMappingQueue_->sync([&] {
    taskMappingQueue_->assertCurrent();
    taskToPartMapping_.erase(task);
  });
}

std::set<UploadTaskId> UploadTaskMap::tasksOf(const std::string& sessionId) {
  std::set<UploadTaskId> tasks;
  taskMappingQueue_->sync([&] {
    taskMappingQueue_->assertCurrent();
    for (const auto& [task, info] : taskToPartMapping_) {
      if (info.sessionId == sessionId) tasks.insert(task);
    }
  });
  return tasks;
}

std::set<int> UploadTaskMap::partsOf(const std::string& sessionId) {
  std::set<int> parts;
  taskMappingQueue_->sync([&] {
    taskMappingQueue_->assertCurrent();
    for (const auto& [task, info] : taskToPartMapping_) {
      if (info.sessionId == sessionId) parts.insert(info.partNumber);
    }
  });
  return parts;
}

}  // namespace quillbeam
