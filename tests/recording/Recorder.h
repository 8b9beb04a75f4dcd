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
        manager(platform, journal),
        tasks(platform.dispatch.main()) {
    EXPECT_TRUE(platform.files.createDirectories("/tmp"));
  }

  static ValueMap screen() { return {{"recordingMode", "screen_with_audio_and_mic"}}; }

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
    return await(manager.startMacRecording(std::move(path), std::move(config)));
  }
  Result<StopRecordingResult> stop() { return await(manager.stopMacRecording()); }
  bool isRecording() const { return *manager.getMacRecordingStatus().at("isRecording").asBool(); }

  int printed(std::string_view line) const {
    return static_cast<int>(std::ranges::count(world.standardOutput.lines(), line));
  }

  SimWorld& world;
  Platform platform;
  RecordingJournal journal;
  MacRecorderManager manager;
  TaskScope tasks;
};

}  // namespace quillbeam
