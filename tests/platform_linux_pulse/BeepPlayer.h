#pragma once

#include <pulse/pulseaudio.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/pulse/HostClock.h"

namespace quillbeam {

/// Plays beeps (1 kHz, 100 ms) on a sink so that the server's own clock says they sound at given host times.
class BeepPlayer {
 public:
  static constexpr int sampleRate = 48'000;

  BeepPlayer(const std::string& server, const std::string& sink) : loop_(pa_threaded_mainloop_new()) {
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "beeps");
    pa_context_connect(context_, server.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr);
    pa_threaded_mainloop_start(loop_);
    waitFor([this] { return pa_context_get_state(context_) == PA_CONTEXT_READY; });
    pa_threaded_mainloop_lock(loop_);
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, sampleRate, 1};
    stream_ = pa_stream_new(context_, "beeps", &format, nullptr);
    pa_stream_set_write_callback(
        stream_,
        [](pa_stream*, size_t bytes, void* self) { static_cast<BeepPlayer*>(self)->write(bytes / sizeof(float)); },
        this);
    const auto unset = static_cast<uint32_t>(-1);
    const pa_buffer_attr buffer{unset, static_cast<uint32_t>(pa_usec_to_bytes(40'000, &format)), unset, unset, unset};
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE |
                                                      PA_STREAM_ADJUST_LATENCY);
    pa_stream_connect_playback(stream_, sink.c_str(), &buffer, flags, nullptr, nullptr);
    pa_threaded_mainloop_unlock(loop_);
  }
  ~BeepPlayer() {
    pa_threaded_mainloop_lock(loop_);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
  }
  BeepPlayer(const BeepPlayer&) = delete;
  BeepPlayer& operator=(const BeepPlayer&) = delete;

  /// A beep at host time `nanoseconds`, at least 300 ms ahead, later than those before.
  void beepAt(std::int64_t nanoseconds) {
    std::lock_guard lock(mutex_);
    beeps_.push_back({nanoseconds, -1});
  }

 private:
  struct Beep {
    std::int64_t hostTime;
    std::int64_t firstFrame;  ///< of the stream; -1 until it is near
  };

  template <class Condition>
  void waitFor(Condition condition) {
    for (int attempt = 0; attempt < 200; ++attempt) {
      pa_threaded_mainloop_lock(loop_);
      const bool met = condition();
      pa_threaded_mainloop_unlock(loop_);
      if (met) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  void write(size_t frames) {
    std::lock_guard lock(mutex_);
    std::vector<float> samples(frames, 0.0F);
    pa_usec_t played = 0;
    const std::int64_t now = hostClockNow();
    if (pa_stream_get_time(stream_, &played) == 0) {
      for (Beep& beep : beeps_) place(beep, static_cast<double>(played) * 1e-6, now, samples);
    }
    written_ += static_cast<std::int64_t>(frames);
    pa_stream_write(stream_, samples.data(), samples.size() * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
  }

  void place(Beep& beep, double playedSeconds, std::int64_t now, std::vector<float>& samples) const {
    const auto end = written_ + static_cast<std::int64_t>(samples.size());
    if (beep.firstFrame < 0) {
      const double seconds = playedSeconds + static_cast<double>(beep.hostTime - now) * 1e-9;
      const auto frame = std::llround(seconds * sampleRate);
      if (frame < end) beep.firstFrame = std::max(frame, static_cast<long long>(written_));
    }
    if (beep.firstFrame < 0) return;
    for (auto at = std::max(beep.firstFrame, written_); at < std::min(beep.firstFrame + sampleRate / 10, end); ++at) {
      const double phase = 2 * M_PI * 1'000 * static_cast<double>(at - beep.firstFrame) / sampleRate;
      samples[static_cast<size_t>(at - written_)] = 0.5F * static_cast<float>(std::sin(phase + 0.5));
    }
  }

  pa_threaded_mainloop* loop_;
  pa_context* context_ = nullptr;
  pa_stream* stream_ = nullptr;
  std::mutex mutex_;
  std::vector<Beep> beeps_;
  std::int64_t written_ = 0;
};

}  // namespace quillbeam
