#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Logging.h"
#include "platform/linux/capture/SoundSource.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {

/// Sound sources that always deliver a tone in time, or cannot be opened. Set up before a capture thread uses them.
class FakeSounds final : public SoundSources {
 public:
  Result<std::unique_ptr<SoundSource>> openSystemAudio() override { return open(440); }
  Result<std::unique_ptr<SoundSource>> openMicrophone() override { return open(880); }

  /// While set, nothing can be opened.
  std::optional<Error> openError;

 private:
  class Source final : public SoundSource {
   public:
    explicit Source(double frequency) : frequency_(frequency) {}
    Result<void> start(MediaTime from) override {
      tone_.emplace(frequency_, from);
      return success;
    }
    std::vector<SampleBuffer> readUntil(MediaTime hostTime) override {
      std::vector<SampleBuffer> blocks;
      while (tone_->nextEnd() <= hostTime) blocks.push_back(tone_->nextBlock());
      return blocks;
    }
    bool isDelivering() const override { return true; }

   private:
    double frequency_;
    std::optional<SimTone> tone_;
  };

  Result<std::unique_ptr<SoundSource>> open(double frequency) {
    if (openError) return *openError;
    return std::make_unique<Source>(frequency);
  }
};

/// Keeps what was logged.
class RecordingLog final : public SystemLog {
 public:
  bool isEnabled(LogLevel) const override { return true; }
  void write(LogLevel level, std::string_view, std::string_view, std::string_view text) override {
    lines.emplace_back(level, std::string(text));
  }
  std::vector<std::pair<LogLevel, std::string>> lines;
};

}  // namespace quillbeam
