#pragma once

#include <optional>

#include "platform/linux/ffmpeg/SampleQueue.h"
#include "platform/linux/ffmpeg/SessionTimes.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

class WriterEngine;

/// A track's entry: checks samples, puts them on the session's timeline and queues them.
class FfmpegAssetWriterInput final : public AssetWriterInput {
 public:
  FfmpegAssetWriterInput(const WriterEngine& writer, const SessionTimes& session, const VideoSettings& settings,
                         WorkSignal& consumer);
  FfmpegAssetWriterInput(const WriterEngine& writer, const SessionTimes& session, const AudioSettings& settings,
                         WorkSignal& consumer);

  bool isReadyForMoreMediaData() const override;
  bool append(const SampleBuffer& sample) override;
  void markAsFinished() override { queue_.close(); }

  const std::optional<VideoSettings>& videoSettings() const { return video_; }
  const std::optional<AudioSettings>& audioSettings() const { return audio_; }
  SampleQueue& queue() { return queue_; }

 private:
  bool accepts(const SampleBuffer& sample) const;

  const WriterEngine& writer_;
  const SessionTimes& session_;
  const std::optional<VideoSettings> video_;
  const std::optional<AudioSettings> audio_;
  SampleQueue queue_;
  MediaTime lastTime_;  ///< confined to the queue that feeds this input
};

}  // namespace quillbeam
