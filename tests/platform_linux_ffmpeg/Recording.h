#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "SyntheticMedia.h"
#include "base/TaskScope.h"
#include "platform/linux/ffmpeg/FfmpegMediaWriters.h"
#include "support/ManualExecutor.h"

namespace quillbeam::test {

inline const VideoSettings screenVideo{320, 180, 1'800'000, 15, 36, true, 0.8};
inline const AudioSettings meetingSound{48'000, 2, 96'000, 64};

/// Waits for a task of a writer, whose threads are real.
template <class T>
Result<T> waitFor(Task<T> task) {
  ManualExecutor executor;
  std::optional<Result<T>> result;
  TaskScope scope(executor);
  executor.run([&] { scope.start(std::move(task), [&](Result<T> done) { result = std::move(done); }); });
  while (!result) {
    executor.runAll();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return *std::move(result);
}

/// Feeds an input as a patient caller does.
inline bool appendWhenReady(AssetWriterInput& input, const SampleBuffer& sample) {
  while (!input.isReadyForMoreMediaData()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return input.append(sample);
}

/// A writer with a screen and two sound tracks, started at time zero.
struct Recording {
  explicit Recording(const Path& path, VideoSettings video = screenVideo, MovieFile::Limits limits = {})
      : settings(video), writers(limits) {
    auto made = writers.makeMovieWriter(path, MovieFileType::mpeg4, NetworkUse::optimized);
    if (!made) return;
    writer = *std::move(made);
    pictures = writer->addVideoInput(settings);
    system = writer->addAudioInput(meetingSound);
    microphone = writer->addAudioInput(meetingSound);
    EXPECT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
  }

  /// Pictures on the 1/24 s grid and tones, from the time reached so far.
  void record(int frames) {
    for (int i = 0; i < frames; ++i, ++frame) {
      ASSERT_TRUE(appendWhenReady(*pictures, pictureAt(movingPicture(settings.width, settings.height, frame),
                                                       MediaTime(frame, 24), MediaTime(1, 24))));
      const std::int64_t sound = frame * 2000;
      ASSERT_TRUE(appendWhenReady(*system, toneAt(sound, 2000, 440)));
      ASSERT_TRUE(appendWhenReady(*microphone, toneAt(sound, 2000, 880)));
    }
  }
  Result<void> finish() { return waitFor(writer->finishWriting()); }

  VideoSettings settings;
  FfmpegMediaWriters writers;
  std::unique_ptr<AssetWriter> writer;
  AssetWriterInput* pictures = nullptr;
  AssetWriterInput* system = nullptr;
  AssetWriterInput* microphone = nullptr;
  int frame = 0;
};

}  // namespace quillbeam::test
