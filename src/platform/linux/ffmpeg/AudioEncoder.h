#pragma once

#include <memory>
#include <vector>

#include "base/Result.h"
#include "platform/linux/ffmpeg/AudioConverter.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// Encodes blocks of sound of any size and rate to AAC, one contiguous track: each sample lies where its block's time
/// says, counted in whole samples. A gap is filled with silence, an overlap is cut from the later block. Stamps that
/// are off by less than `stampTolerance` are rounding, and the block follows its predecessor. One thread at a time.
///
/// Times are presentation times of sound; the encoder's own delay shows as packets before them (the first one's time is
/// negative when the track starts at zero).
class AudioEncoder {
 public:
  /// Half a millisecond: nobody hears or sees it, and correcting it would click.
  static constexpr MediaTime stampTolerance{1, 2'000};
  /// Longer gaps stay gaps: the packet before one lasts until sound goes on. Filling hours would take minutes.
  static constexpr MediaTime longestFilledGap{30, 1};

  /// `AssetWriterError::cannotEncode` when no encoder takes the settings.
  static Result<std::unique_ptr<AudioEncoder>> create(const AudioSettings& settings);

  /// Encodes `block`, whose first sample is heard at `time` (from zero on; what lies before is cut).
  Result<void> encode(const AudioBlock& block, MediaTime time, const PacketSink& sink);
  /// Silence up to `time`, if the track has not got there.
  Result<void> encodeSilence(MediaTime time, const PacketSink& sink);
  /// Encodes what is left. Nothing can be encoded afterwards.
  Result<void> drain(const PacketSink& sink);

  const TrackFormat& format() const { return format_; }
  /// Where the next sample would be heard.
  MediaTime position() const;

 private:
  explicit AudioEncoder(AvOwned<AVCodecContext> context);

  std::int64_t converted() const;
  Result<void> advanceTo(std::int64_t position, const PacketSink& sink);
  Result<void> appendSilence(std::int64_t frames, const PacketSink& sink);
  Result<void> flushConverter(const PacketSink& sink);
  Result<void> encodeWholeFrames(const PacketSink& sink);
  Result<void> encodeFrame(int frames, const PacketSink& sink);
  Result<void> send(const AVFrame* frame, const PacketSink& sink);

  AvOwned<AVCodecContext> context_;
  TrackFormat format_;
  std::unique_ptr<AudioConverter> converter_;
  std::vector<float> pending_;        ///< interleaved, in the encoder's format
  std::int64_t pendingPosition_ = 0;  ///< of the first pending frame, from the track's zero
};

}  // namespace quillbeam
