#include "platform/linux/pulse/PulseSoundSources.h"

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/pulse/PulseSoundSource.h"

namespace quillbeam {

namespace {

Result<std::unique_ptr<SoundSource>> open(PulseContext& context, SoundRole role) {
  if (!context.answers(soundServerPatience)) return ScreenCaptureError::noSoundServer;
  return std::make_unique<PulseSoundSource>(context, role);
}

}  // namespace

Result<std::unique_ptr<SoundSource>> PulseSoundSources::openSystemAudio() {
  return open(context_, SoundRole::systemAudio);
}

Result<std::unique_ptr<SoundSource>> PulseSoundSources::openMicrophone() {
  return open(context_, SoundRole::microphone);
}

}  // namespace quillbeam
