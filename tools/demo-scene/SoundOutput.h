#pragma once

#include <pulse/simple.h>

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace quillbeam::demo {

inline constexpr int soundRate = 48000;

/// A mono stream into one sink of the sound server. Blocks; one thread.
class SoundOutput {
 public:
  /// The default sink when `sink` is empty; nothing without a sound server. `buffered` is how far ahead of what is
  /// heard the writer runs.
  static std::optional<SoundOutput> open(const std::string& sink, std::chrono::milliseconds buffered);

  /// False when the server is gone.
  bool write(std::span<const float> samples);
  /// How long from now the sample that is written next will be heard.
  std::chrono::microseconds latency();

 private:
  struct Close {
    void operator()(pa_simple* stream) const { pa_simple_free(stream); }
  };
  explicit SoundOutput(pa_simple* stream) : stream_(stream) {}
  std::unique_ptr<pa_simple, Close> stream_;
};

}  // namespace quillbeam::demo
