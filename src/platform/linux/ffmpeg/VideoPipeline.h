#pragma once

#include <memory>
#include <optional>

#include "platform/linux/ffmpeg/PacketMailbox.h"
#include "platform/linux/ffmpeg/SampleQueue.h"
#include "platform/linux/ffmpeg/SessionTimes.h"
#include "platform/linux/ffmpeg/VideoEncoder.h"
#include "platform/linux/ffmpeg/WorkerThread.h"

namespace quillbeam {

/// Takes pictures from their queue, cuts them to the session and encodes them. The newest picture waits for its
/// successor or for the session's end, because the end usually is the time of the last picture, which then must not be
/// encoded. Lives on the video thread.
class VideoPipeline {
 public:
  /// With a `keyFrameInterval` the first picture at or after each multiple of it is a key frame.
  VideoPipeline(std::unique_ptr<VideoEncoder> encoder, SampleQueue& pictures, const SessionTimes& session,
                PacketMailbox& output, std::optional<MediaTime> keyFrameInterval = std::nullopt)
      : encoder_(std::move(encoder)),
        pictures_(pictures),
        session_(session),
        output_(output),
        keyFrameInterval_(keyFrameInterval) {}

  /// Encodes one picture, if there is one and there is room for it behind the encoder.
  WorkerThread::Outcome step();

 private:
  WorkerThread::Outcome fail(Error error);
  Result<void> take(const SampleBuffer& sample);
  Result<void> startTrack();
  Result<void> encode(std::shared_ptr<const PixelBuffer> picture, MediaTime time);
  KeyFrame keyFrameAt(MediaTime time);
  Result<void> encodeHeld();
  Result<std::optional<MediaTime>> finish();

  std::unique_ptr<VideoEncoder> encoder_;
  SampleQueue& pictures_;
  const SessionTimes& session_;
  PacketMailbox& output_;
  const std::optional<MediaTime> keyFrameInterval_;
  MediaTime nextKeyFrame_ = MediaTime::zero();
  std::optional<SampleBuffer> held_;
  std::optional<MediaTime> lastEncoded_;  ///< in the encoder's ticks
  int packetsOut_ = 0;
  MediaTime lastSpacing_{1, 24};  ///< stands in for the duration of a last picture that has none
};

}  // namespace quillbeam
