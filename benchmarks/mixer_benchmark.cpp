// What mixing the two sounds of a recording costs while it is uploaded: seconds of sound per second of processor time.

#include <benchmark/benchmark.h>

#include <memory>
#include <utility>

#include "chunking/AudioMixer.h"
#include "chunking/MonoSamples.h"
#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimTone.h"

namespace quillbeam {
namespace {

class CountingInput final : public AssetWriterInput {
 public:
  bool isReadyForMoreMediaData() const override { return true; }
  bool append(const SampleBuffer& sample) override {
    frames += sample.block()->frames();
    return true;
  }
  void markAsFinished() override {}

  std::int64_t frames = 0;
};

/// Both sources in blocks of 10 ms, as they are captured; the same tone a second over.
std::vector<SampleBuffer> secondOfSound() {
  SimTone tone(440, MediaTime::zero());
  std::vector<SampleBuffer> blocks;
  for (int i = 0; i < 100; ++i) blocks.push_back(tone.nextBlock());
  return blocks;
}

void mixTwoSources(benchmark::State& state) {
  SimDispatch dispatch;
  AudioMixer mixer(dispatch.main(), AudioSources());
  CountingInput output;
  const auto blocks = secondOfSound();
  std::int64_t position = 0;
  for (auto _ : state) {
    for (const SampleBuffer& block : blocks) {
      for (const AudioSource source : {AudioSource::system, AudioSource::mic}) {
        mixer.queue(source).append({*mixSamples(block), position});
        mixer.drain(output);
      }
      position += block.block()->frames();
    }
  }
  state.counters["x real time"] =
      benchmark::Counter(static_cast<double>(output.frames) / SimTone::sampleRate, benchmark::Counter::kIsRate);
}
BENCHMARK(mixTwoSources)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quillbeam
