#pragma once

#include <memory>

#include "base/Result.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

struct PictureSize {
  int width = 0;
  int height = 0;
};

enum class KeyFrame { whenNeeded, forced };

/// Encodes pictures to H.264. A picture leaves the encoder at most two pictures after it went in. One thread at a time;
/// the work happens on the caller's thread. Whatever spacing the pictures have, their times are kept.
class VideoEncoder {
 public:
  /// Ticks per second of presentation times and packets; a picture grid of 1/24 s or 1/30 s falls on whole ticks.
  static constexpr std::int32_t timescale = 90'000;

  /// `AssetWriterError::cannotEncode` when no encoder takes the settings.
  static Result<std::unique_ptr<VideoEncoder>> create(const VideoSettings& settings);

  /// What every picture must measure.
  PictureSize size() const { return {context_->width, context_->height}; }
  /// Times must rise. Keeps the picture until it is encoded.
  Result<void> encode(std::shared_ptr<const PixelBuffer> picture, std::int64_t presentationTime, KeyFrame keyFrame,
                      const PacketSink& sink);
  /// Puts out what is still inside. Nothing can be encoded afterwards.
  Result<void> drain(const PacketSink& sink);

  const TrackFormat& format() const { return format_; }

 private:
  explicit VideoEncoder(AvOwned<AVCodecContext> context);
  Result<void> send(const AVFrame* frame, const PacketSink& sink);

  AvOwned<AVCodecContext> context_;
  TrackFormat format_;
};

}  // namespace quillbeam
