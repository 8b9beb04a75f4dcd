#pragma once

#include <memory>
#include <optional>

#include "platform/linux/ffmpeg/AudioEncoder.h"
#include "platform/linux/ffmpeg/SampleQueue.h"
#include "platform/linux/ffmpeg/SessionTimes.h"

namespace quillbeam {

/// Takes blocks of sound from their queue, cuts them to the session to the sample and encodes them. Lives on the
/// writing thread.
class AudioTrackFeed {
 public:
  AudioTrackFeed(std::unique_ptr<AudioEncoder> encoder, SampleQueue& blocks, const SessionTimes& session)
      : encoder_(std::move(encoder)), blocks_(blocks), session_(session) {}

  enum class Progress { none, some, ended };

  /// Encodes what is queued, a bounded amount at a time. `ended` once, when the track is complete.
  Result<Progress> step(const PacketSink& sink);
  /// Just enough silence that the track has its first packet.
  Result<void> encodeLeadingSilence(const PacketSink& sink);

 private:
  Result<void> encode(const SampleBuffer& sample, const PacketSink& sink);

  std::unique_ptr<AudioEncoder> encoder_;
  SampleQueue& blocks_;
  const SessionTimes& session_;
  bool ended_ = false;
};

}  // namespace quillbeam
