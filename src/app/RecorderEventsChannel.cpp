#include "app/RecorderEventsChannel.h"

#include "app/ChannelNames.h"

namespace quillbeam {

RecorderEventsChannel::RecorderEventsChannel(BinaryMessenger& messenger, DispatchQueue& main,
                                             NotificationCenter& notifications, const Logger& logger)
    : notifications_(notifications),
      main_(main),
      logger_(logger),
      channel_(messenger, std::string(channel_names::macRecorderEvents)) {
  forwardUploads();
  observe("macRecordingEntryUpdate", [this](const ValueMap& userInfo) { forwardEntryUpdate(userInfo); });
  logger_.info("📡 [macOS] Upload event observers set up for library integration");
}

void RecorderEventsChannel::emit(const std::string& event, const std::string& fileId, const ValueMap& extras) {
  ValueMap arguments{{"event", event}, {"fileId", fileId}};
  for (const auto& [key, value] : extras) arguments.set(key, value);
  main_.async([this, alive = weaklyHeld_.aliveFlag(), arguments = Value(std::move(arguments))] {
    if (*alive) channel_.invoke("recordingEntryUpdate", arguments);
  });
  logger_.info("📤 [macOS] Emitted recordingEntryUpdate: " + event + " for fileId: " + fileId);
}

void RecorderEventsChannel::observe(std::string_view notification, NotificationCenter::Observer observer) {
  observations_.push_back(notifications_.observe(notification, std::move(observer)));
}

void RecorderEventsChannel::forwardUploads() {
  observe("macUploadProgressUpdated", [this](const ValueMap& userInfo) {
    const Value info(userInfo);
    const auto progress = info.at("progress").asDouble();
    const std::string* fileId = info.at("fileId").asString();
    if (progress && fileId != nullptr) emit("uploadProgress", *fileId, {{"progress", *progress}});
  });
  observe("macUploadCompleted", [this](const ValueMap& userInfo) {
    const Value info(userInfo);
    if (const std::string* fileId = info.at("fileId").asString()) emit("uploadComplete", *fileId);
  });
  observe("macUploadFailed", [this](const ValueMap& userInfo) {
    const Value info(userInfo);
    const std::string* fileId = info.at("fileId").asString();
    const std::string* error = info.at("error").asString();
    if (fileId != nullptr) emit("uploadFailed", *fileId, {{"error", error == nullptr ? Value() : Value(*error)}});
  });
}

void RecorderEventsChannel::forwardEntryUpdate(const Value& userInfo) {
  const std::string* event = userInfo.at("event").asString();
  const std::string* fileId = userInfo.at("fileId").asString();
  if (event == nullptr || fileId == nullptr) return;
  ValueMap extras;
  for (const auto& [key, value] : *userInfo.asMap()) {
    const std::string* name = key.asString();
    if (name != nullptr && *name != "event" && *name != "fileId") extras.append(key, value);
  }
  emit(*event, *fileId, extras);
}

}  // namespace quillbeam
