#include "platform/linux/capture/SoundTrack.h"

#include <string>
#include <utility>

namespace quillbeam {

namespace {

constexpr int sampleRate = 48'000;
constexpr int channels = 2;
constexpr int blockFrames = sampleRate / 100;
constexpr MediaTime retryInterval{2, 1};

const std::shared_ptr<const AudioBlock>& silentBlock() {
  static const auto block = std::make_shared<const AudioBlock>(
      AudioBlock{sampleRate, channels, std::vector<float>(static_cast<std::size_t>(blockFrames) * channels)});
  return block;
}

}  // namespace

SoundTrack::SoundTrack(OutputType type, SoundSources& sources, SystemLog& log)
    : type_(type), sources_(sources), log_(log, "io.quillbeam.app", "capture") {}

std::string_view SoundTrack::name() const {
  return type_ == OutputType::microphone ? "the microphone" : "the system's sound";
}

void SoundTrack::start(MediaTime from) {
  next_ = from;
  open(from);
}

std::vector<SampleBuffer> SoundTrack::readUntil(MediaTime hostTime) {
  if (!source_ && hostTime >= retryAt_) open(hostTime);
  auto blocks = source_ ? source_->readUntil(hostTime) : silenceUntil(hostTime);
  if (!blocks.empty()) next_ = blocks.back().presentationTime() + blocks.back().duration();
  return blocks;
}

void SoundTrack::open(MediaTime now) {
  auto opened = type_ == OutputType::microphone ? sources_.openMicrophone() : sources_.openSystemAudio();
  auto started = opened ? (*opened)->start(next_) : Result<void>(opened.error());
  if (started) {
    source_ = *std::move(opened);
    if (complained_) log_.notice("Recording " + std::string(name()) + " again");
    return;
  }
  if (!std::exchange(complained_, true)) {
    log_.error("Recording silence for " + std::string(name()) + ": " + started.error().fullDescription());
  }
  silentFrom_ = next_;
  silentFrames_ = 0;
  retryAt_ = now + retryInterval;
}

std::vector<SampleBuffer> SoundTrack::silenceUntil(MediaTime hostTime) {
  std::vector<SampleBuffer> blocks;
  while (silentFrom_ + MediaTime(silentFrames_ + blockFrames, sampleRate) <= hostTime) {
    blocks.push_back(SampleBuffer::audio(silentBlock(), silentFrom_ + MediaTime(silentFrames_, sampleRate)));
    silentFrames_ += blockFrames;
  }
  return blocks;
}

}  // namespace quillbeam
