// What capturing a screen costs: reading pixels, converting them, and a whole stream on a private X server.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <optional>
#include <thread>

#include "base/TaskScope.h"
#include "platform/linux/capture/LinuxScreenCapture.h"
#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/linux/x11/PictureConverter.h"
#include "platform/linux/x11/ScreenImage.h"
#include "platform/linux/x11/X11Displays.h"
#include "support/FakeSounds.h"
#include "support/PrivateDisplay.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

constexpr int screenWidth = 1920;
constexpr int screenHeight = 1080;

void convertScreen(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0x336699);
  const ScreenPixels screen{reinterpret_cast<const std::uint8_t*>(pixels.data()), width * 4, width, height};
  const auto picture = I420Picture::create(screenWidth, screenHeight);
  PictureConverter converter;
  for (auto _ : state) {
    auto converted = converter.convert(screen, *picture);
    benchmark::DoNotOptimize(converted);
  }
}
BENCHMARK(convertScreen)->Args({1920, 1080})->Args({2560, 1440})->Args({3840, 2160})->Unit(benchmark::kMillisecond);

/// The wall time of reading so many rows, over shared memory or the connection.
void readRows(benchmark::State& state, std::vector<std::string> serverOptions) {
  PrivateDisplay display(screenWidth, screenHeight, 24, std::move(serverOptions));
  if (!display.isRunning()) return state.SkipWithError("no private X server could be started");
  const auto connection = X11Connection::open(display.name());
  const auto area = X11Displays(**connection).list()->front();
  const auto image = *ScreenImage::create(**connection, area);
  for (auto _ : state) {
    auto read = image->read({0, static_cast<int>(state.range(0))});
    benchmark::DoNotOptimize(read);
  }
}
BENCHMARK_CAPTURE(readRows, sharedMemory, {})
    ->Arg(1080)
    ->Arg(270)
    ->Arg(30)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(readRows, connection, {"-extension", "MIT-SHM"})
    ->Arg(1080)
    ->Arg(30)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

class TakingOutput final : public StreamOutput {
 public:
  SampleDisposition didOutputSampleBuffer(const SampleBuffer&, OutputType) override { return SampleDisposition::taken; }
};
class QuietDelegate final : public StreamDelegate {
 public:
  void streamDidStopWithError(const Error&) override {}
};

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// CPU seconds of this process (not of the X server) per captured second; `range(0)` rows change thirty times a second.
void captureSeconds(benchmark::State& state) {
  PrivateDisplay display(screenWidth, screenHeight);
  if (!display.isRunning()) return state.SkipWithError("no private X server could be started");
  LinuxDispatch dispatch;
  FakeSounds sounds;
  RecordingLog log;
  TakingOutput output;
  QuietDelegate delegate;
  const auto queue = dispatch.makeSerialQueue("outputs");
  LinuxScreenCapture capture(dispatch, sounds, log, display.name());
  const auto connection = X11Connection::open(display.name());
  const auto area = X11Displays(**connection).list()->front();
  const auto stream = *capture.makeStream(
      {area.displayId, area.width, area.height},
      {.width = screenWidth, .height = screenHeight, .capturesAudio = true, .captureMicrophone = true}, delegate);
  for (const auto type : {OutputType::screen, OutputType::audio, OutputType::microphone}) {
    if (!stream->addStreamOutput(output, type, *queue)) return state.SkipWithError("an output was refused");
  }
  TaskScope scope(dispatch.main());
  scope.start(stream->startCapture(), [&](Result<void>) { dispatch.stopMain(); });
  dispatch.runMain();
  std::this_thread::sleep_for(1s);

  const auto before = stream->statistics();
  const double cpuBefore = cpuSeconds();
  const auto changingRows = static_cast<int>(state.range(0));
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    for (int frame = 0; frame < 30; ++frame) {
      if (changingRows > 0) display.paint(0, 0, screenWidth, changingRows, {static_cast<std::uint8_t>(frame), 80, 80});
      std::this_thread::sleep_until(start + (frame + 1) * 33333us);
    }
    seconds += 1;
  }
  const auto after = stream->statistics();
  state.counters["cpu/s"] = (cpuSeconds() - cpuBefore) / seconds;
  state.counters["pictures/s"] = static_cast<double>(after.framesDelivered - before.framesDelivered) / seconds;
  state.counters["dropped"] = static_cast<double>(after.framesDropped - before.framesDropped);
}
BENCHMARK(captureSeconds)->Arg(0)->Arg(30)->Arg(270)->Arg(1080)->Iterations(8)->UseRealTime();

}  // namespace
}  // namespace quillbeam
