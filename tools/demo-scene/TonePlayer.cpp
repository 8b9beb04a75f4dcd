#include "TonePlayer.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "SoundOutput.h"

namespace quillbeam::demo {

namespace {

constexpr int blockFrames = soundRate / 100;
constexpr int pulseFrames = soundRate / 5;

}  // namespace

bool Tone::parse(const std::string& text, Tone& tone) {
  char sink[128] = "";
  char shape[4] = "";
  double hertz = 0;
  if (std::sscanf(text.c_str(), "%lf/%3[s]@%127s", &hertz, shape, sink) < 2) {
    if (std::sscanf(text.c_str(), "%lf@%127s", &hertz, sink) < 1) return false;
  }
  tone = {hertz, sink, shape[0] ? Shape::pulseEachSecond : Shape::steady};
  return hertz > 0;
}

void TonePlayer::play(const Tone& tone) {
  using namespace std::chrono_literals;
  auto output = SoundOutput::open(tone.sink, 60ms);
  if (!output) {
    std::fprintf(stderr, "demo-scene: no sound server, or no sink \"%s\"\n", tone.sink.c_str());
    return;
  }
  std::array<float, blockFrames> block;
  std::int64_t position = 0;
  do {
    for (float& sample : block) {
      const bool on = tone.shape == Tone::Shape::steady || position % soundRate < pulseFrames;
      const double phase = 2 * std::numbers::pi * tone.hertz * static_cast<double>(position) / soundRate;
      sample = on ? static_cast<float>(0.4 * std::sin(phase)) : 0.0f;
      ++position;
    }
  } while (output->write(block) && !stopping_);
}

}  // namespace quillbeam::demo
