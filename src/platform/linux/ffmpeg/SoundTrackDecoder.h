#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "base/MediaTime.h"
#include "base/Result.h"
#include "platform/linux/ffmpeg/AvTypes.h"

namespace quillbeam {

/// Turns one track's packets into sound of the mix's format, each sample where its track's timeline puts it. What is
/// missing, or cannot be decoded, is silence; what lies before zero or behind the track's end is cut. Positions are
/// frames of the mix's rate from the file's zero. Holds what was decoded and not yet asked for. One thread at a time.
class SoundTrackDecoder {
 public:
  static constexpr int sampleRate = 48'000;
  static constexpr int channels = 2;

  /// `end`: of the track; zero when that is not known. `AudioExporterError::cannotRead` when nothing decodes its
  /// format.
  static Result<std::unique_ptr<SoundTrackDecoder>> create(const AVStream& stream, MediaTime end);

  int streamIndex() const { return streamIndex_; }
  void take(const AVPacket& packet);
  /// No packet follows soon: gives out what was kept to join it to the next one's sound.
  void flush();
  /// No more packets.
  void finish();

  /// Whether everything before `position` has been decoded.
  bool hasReached(std::int64_t position) const { return hasEnded() || position_ >= position; }
  /// Whether no more sound comes: there are no more packets, or its end is known and reached.
  bool hasEnded() const { return finished_ || (end_ && position_ >= *end_); }
  /// Where the sound decoded so far ends.
  std::int64_t position() const { return position_; }
  /// How much was decoded and not yet asked for.
  std::int64_t heldFrames() const { return heldFrames_; }
  /// Adds the sound from `position` on to `block` and forgets what lies before the block's end. Positions must rise.
  void addTo(std::span<float> block, std::int64_t position, float volume);

 private:
  struct Format {
    int sampleFormat = AV_SAMPLE_FMT_NONE;
    int sampleRate = 0;
    int channels = 0;
    friend bool operator==(const Format&, const Format&) = default;
  };
  struct Piece {
    std::int64_t start = 0;
    std::vector<float> samples;

    std::int64_t frames() const { return static_cast<std::int64_t>(samples.size()) / channels; }
    std::int64_t end() const { return start + frames(); }
  };

  SoundTrackDecoder(const AVStream& stream, AvOwned<AVCodecContext> context);

  void receive();
  void place(const AVFrame& frame);
  /// Begins anew at `start` (ticks of the frame's rate), after a gap or in another format.
  void restart(const AVFrame& frame, Format format, std::int64_t start);
  void convert(const AVFrame* frame, int skipped, int frames);
  void append(std::vector<float> samples);

  AvOwned<AVCodecContext> context_;
  AvOwned<AVFrame> frame_;
  AvOwned<SwrContext> resampler_;
  const int streamIndex_;
  const AVRational timeBase_;
  std::optional<std::int64_t> end_;
  Format format_;
  std::int64_t sourceStart_ = 0;   ///< of the contiguous sound that is being converted, in ticks of its own rate
  std::int64_t sourceFrames_ = 0;  ///< of it, taken so far
  std::int64_t position_ = 0;
  std::deque<Piece> pieces_;  ///< by their starts; none overlap
  std::int64_t heldFrames_ = 0;
  bool finished_ = false;
};

}  // namespace quillbeam
