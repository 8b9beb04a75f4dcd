#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "base/TaskScope.h"
#include "platform/sim/SimWorld.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// A recorder on a simulated machine, driven from the test.
struct Recorder {
  explicit Recorder(SimWorld& simWorld)
      : world(simWorld),
        platform(simWorld.platform()),
        journal(platform.files, platform.places, platform.random),
        apiClient(platform),
        storage(platform),
        notifications(platform.dispatch.main()),
        uploads(platform, apiClient, storage, notifications),
        stored(platform),
        manager(platform, journal, {apiClient, uploads, stored, notifications}),
        tasks(platform.dispatch.main()) {
    EXPECT_TRUE(platform.files.createDirectories("/tmp"));
  }

  static ValueMap screen() { return {{"recordingMode", "screen_with_audio_and_mic"}}; }

  static MacRecorderManager::StartRequest request(Path path = "/tmp/meeting.mp4") {
    return {.filePath = std::move(path), .config = screen()};
  }
  /// One that is uploaded while it runs.
  static MacRecorderManager::StartRequest uploadRequest(const std::string& name = "Weekly") {
    auto uploaded = request("/tmp/" + name + ".mp4");
    uploaded.teamId = "t";
    uploaded.folderId = "f";
    uploaded.fileName = name;
    uploaded.tempFileId = "pending_" + name;
    return uploaded;
  }

  /// Runs the task, and time, until it has ended.
  template <class T>
  Result<T> await(Task<T> task) {
    std::optional<Result<T>> ended;
    tasks.start(std::move(task), [&](Result<T> result) { ended.emplace(std::move(result)); });
    world.dispatch.runUntil([&] { return ended.has_value(); }, std::chrono::minutes(1));
    return ended ? *std::move(ended) : Result<T>(CommonError::cancelled);
  }

  Result<ScreenCaptureSelection> select() { return await(manager.selectScreenCaptureContent()); }
  Result<void> start(ValueMap config = screen(), Path path = "/tmp/meeting.mp4") {
    return await(manager.startMacRecording({.filePath = std::move(path), .config = std::move(config)}));
  }
  Result<StopRecordingResult> stop() { return await(manager.stopMacRecording()); }
  bool isRecording() const { return *manager.getMacRecordingStatus().at("isRecording").asBool(); }

  int printed(std::string_view line) const {
    return static_cast<int>(std::ranges::count(world.standardOutput.lines(), line));
  }

  SimWorld& world;
  Platform platform;
  RecordingJournal journal;
  MacNativeApiClient apiClient;
  MacNativeUploadSessionStorage storage;
  NotificationCenter notifications;
  MacNativeBackgroundUploadManager uploads;
  StoredRecordings stored;
  MacRecorderManager manager;
  TaskScope tasks;
};

}  // namespace quillbeam
