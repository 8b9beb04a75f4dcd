#pragma once

#include <cstdint>
#include <string_view>

#include "chunking/MixQueue.h"
#include "platform/Dispatch.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

enum class AudioSource { system, mic };
std::string_view toText(AudioSource source);

/// Which sources will deliver. One that is switched off is not waited for.
struct AudioSources {
  bool system = true;
  bool mic = true;
  bool any() const { return system || mic; }
};

/// Mixes system sound and microphone into one mono track of 48 kHz, in blocks of 1024 frames from frame 0 on, held back
/// 0.1 s behind the shorter source so that late sound still lands in its block. Where sound lies on that timeline is
/// for its owner to say. All of it on the owner's queue.
class AudioMixer {
 public:
  AudioMixer(DispatchQueue& mixerQueue, AudioSources sources) : mixerQueue_(mixerQueue), sources_(sources) {}

  /// What of a source waits to be mixed, and where to add to it.
  MixQueue& queue(AudioSource source);
  /// Appends to `output` what can be mixed by now; nothing while it is not ready.
  void drain(AssetWriterInput& output);
  /// All that is left, but for a remainder shorter than a block.
  void drainAll(AssetWriterInput& output);
  /// Where the next block begins, and so the end of the mix.
  std::int64_t currentMixFrame() const;

 private:
  static constexpr int mixBlockSize = 1024;

  void mixUpTo(std::int64_t endFrame, AssetWriterInput& output);
  SampleBuffer mixBlock();

  DispatchQueue& mixerQueue_;
  const AudioSources sources_;
  MixQueue system_ CONFINED_TO(mixerQueue_);
  MixQueue mic_ CONFINED_TO(mixerQueue_);
  std::int64_t currentMixFrame_ CONFINED_TO(mixerQueue_) = 0;
};

}  // namespace quillbeam
