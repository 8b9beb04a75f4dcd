#pragma once

#include "platform/linux/capture/SoundSource.h"
#include "platform/linux/pulse/PulseContext.h"

namespace quillbeam {

/// How long to wait for a sound server that accepts connections and says nothing.
inline constexpr Duration soundServerPatience = std::chrono::milliseconds(1'500);

/// The sounds of the server that the context is connected to; the context outlives it.
class PulseSoundSources : public SoundSources {
 public:
  explicit PulseSoundSources(PulseContext& context) : context_(context) {}

  Result<std::unique_ptr<SoundSource>> openSystemAudio() override;
  Result<std::unique_ptr<SoundSource>> openMicrophone() override;

 private:
  PulseContext& context_;
};

}  // namespace quillbeam
