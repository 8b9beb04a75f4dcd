#include "FlashAndBeep.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

#include "SoundOutput.h"

namespace quillbeam::demo {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int blockFrames = soundRate / 100;
constexpr int beepFrames = soundRate / 5;
constexpr int pictureFrames = soundRate / 24;
/// Time for the drawing thread to learn of a beep and to wait for it.
constexpr auto ahead = 200ms;

/// Where beep k starts: each second, moved by steps that fill the span between two pictures evenly.
std::int64_t beepStart(std::int64_t k) {
  const double place = std::fmod(static_cast<double>(k) * std::numbers::phi, 1.0);
  return (k + 1) * soundRate + static_cast<std::int64_t>(place * pictureFrames);
}

float beepSample(std::int64_t sinceStart) {
  if (sinceStart < 0 || sinceStart >= beepFrames) return 0;
  // A quarter period in: the onset is a step, whose place can be found to the sample.
  return static_cast<float>(0.5 * std::cos(2 * std::numbers::pi * 1000 * static_cast<double>(sinceStart) / soundRate));
}

}  // namespace

void FlashAndBeep::beep(const std::atomic<bool>& stop) {
  auto output = SoundOutput::open("", ahead);
  std::array<float, blockFrames> block;
  std::int64_t position = 0;
  std::int64_t next = 0;
  while (output && !stop) {
    const std::int64_t start = beepStart(next);
    if (start >= position && start < position + blockFrames) {
      const auto inBlock = std::chrono::nanoseconds((start - position) * 1'000'000'000 / soundRate);
      heardAt_ = (Clock::now() + output->latency() + inBlock).time_since_epoch().count();
    }
    for (float& sample : block) sample = beepSample(position++ - start);
    if (position >= start + beepFrames) ++next;
    if (!output->write(block)) break;
  }
  failed_ = !stop;
}

void FlashAndBeep::flash() {
  Canvas& canvas = window_.canvas();
  const std::vector<Rect> everything{canvas.all()};
  canvas.fill(canvas.all(), 0xFFFFFF);
  std::this_thread::sleep_until(Clock::time_point(std::chrono::nanoseconds(heardAt_.exchange(0))));
  window_.show(everything);
  canvas.fill(canvas.all(), 0x000000);
  std::this_thread::sleep_for(100ms);
  window_.show(everything);
}

bool FlashAndBeep::run(const std::atomic<bool>& stop) {
  window_.canvas().fill(window_.canvas().all(), 0x000000);
  const std::vector<Rect> everything{window_.canvas().all()};
  window_.show(everything);
  std::puts("ready");
  std::fflush(stdout);
  std::thread beeper([this, &stop] { beep(stop); });
  while (!stop && !failed_) {
    if (heardAt_ != 0) flash();
    std::this_thread::sleep_for(2ms);
  }
  beeper.join();
  return !failed_;
}

}  // namespace quillbeam::demo
