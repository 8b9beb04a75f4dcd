#pragma once

#include <atomic>
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
  /// While set, what is opened cannot be started.
  std::optional<Error> startError;
  /// A source that forgets to deliver, against its contract.
  std::atomic<bool> stuck = false;
  std::atomic<int> openedSources = 0;

 private:
  class Source final : public SoundSource {
   public:
    Source(FakeSounds& owner, double frequency) : owner_(owner), frequency_(frequency) {}
    Result<void> start(MediaTime from) override {
      if (owner_.startError) return *owner_.startError;
      tone_.emplace(frequency_, from);
      return success;
    }
    std::vector<SampleBuffer> readUntil(MediaTime hostTime) override {
      std::vector<SampleBuffer> blocks;
      while (!owner_.stuck && tone_->nextEnd() <= hostTime) blocks.push_back(tone_->nextBlock());
      return blocks;
    }
    bool isDelivering() const override { return !owner_.stuck; }

   private:
    FakeSounds& owner_;
    double frequency_;
    std::optional<SimTone> tone_;
  };

  Result<std::unique_ptr<SoundSource>> open(double frequency) {
    if (openError) return *openError;
    ++openedSources;
    return std::make_unique<Source>(*this, frequency);
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
