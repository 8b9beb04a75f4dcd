#pragma once

#include <memory>
#include <vector>

#include "platform/linux/ffmpeg/AudioEncoder.h"
#include "platform/linux/ffmpeg/MixedSoundFile.h"
#include "platform/linux/ffmpeg/PeakLimiter.h"
#include "platform/linux/ffmpeg/SoundFile.h"
#include "platform/linux/ffmpeg/SoundTrackDecoder.h"

namespace quillbeam {

/// The work of one export, piece by piece:
///
///     SoundFile ─packets─► SoundTrackDecoder (one per track) ─► sum ─► PeakLimiter ─► AudioEncoder ─► MixedSoundFile
///
/// Destroying it before its end leaves nothing behind. Errors are `AudioExporterError`s. One thread at a time.
class AudioMixdown {
 public:
  enum class Progress { some, ended };

  static Result<std::unique_ptr<AudioMixdown>> create(const AudioMix& mix);

  /// Decodes about a second, or mixes a part of one, or both; `ended` once the output is in its place.
  Result<Progress> step();
  /// 0…1, by what the index says of the longest track.
  double progress() const;
  /// The most sound that a track has ready and not mixed: some ten seconds, however far the tracks lie apart.
  std::int64_t heldFrames() const;

 private:
  struct Voice {
    std::unique_ptr<SoundTrackDecoder> decoder;
    float volume = 1;
  };

  AudioMixdown(SoundFile source, std::vector<Voice> voices, MediaTime expectedLength);

  Result<void> open(const Path& output);
  /// Whether a track may still have sound before `position`, and is worth waiting for.
  bool needsPackets(std::int64_t position) const;
  /// Decodes while that is so, but no more than a step's worth.
  Result<void> decodeTowards(std::int64_t position);
  void dispatch(const AVPacket& packet);
  Result<void> mixUntil(std::int64_t end);
  /// Takes the next `block_`, whose first `skipped` frames are the limiter's delay.
  Result<void> encode(std::int64_t skipped);
  /// Calls `code` with the sink that brings packets into the file.
  template <class Code>
  Result<void> intoFile(Code code);
  Result<void> finish(std::int64_t end);
  bool hasEnded() const;
  /// Where the longest track ends, once all have.
  std::int64_t end() const;

  SoundFile source_;
  std::vector<Voice> voices_;
  const MediaTime expectedLength_;
  AvOwned<AVPacket> packet_;
  std::vector<float> block_;
  PeakLimiter limiter_;
  std::unique_ptr<AudioEncoder> encoder_;
  std::unique_ptr<MixedSoundFile> file_;
  std::int64_t position_ = 0;  ///< frames that went into the limiter
};

}  // namespace quillbeam
