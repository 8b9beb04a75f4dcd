#include "platform/linux/pulse/PulseRecorder.h"

#include <algorithm>

#include "platform/linux/pulse/HostClock.h"

namespace quillbeam {

namespace {

// Without a fragment size the server delivers late and in lumps.
constexpr pa_usec_t fragment = 20'000;

constexpr std::int64_t longPause = 100'000'000;  ///< nanoseconds between deliveries

// A device that wakes up sets its clock: the first stamps may be 10 ms off and the next ones exact.
constexpr std::int64_t settlingTime = 150'000'000;  ///< nanoseconds from the first delivery

constexpr auto streamFlags = static_cast<pa_stream_flags_t>(
    // Three stamps a second as the server gives them. The library's interpolation between them wanders by 10 ms.
    PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY |
    // The server would carry a stream whose monitor vanished over to a microphone.
    PA_STREAM_DONT_MOVE);

void letGo(pa_operation* operation) {
  if (operation) pa_operation_unref(operation);
}

}  // namespace

PulseRecorder::PulseRecorder(PulseContext& context, SoundRole role, CaptureRing& ring)
    : context_(context), role_(role), ring_(ring) {
  PulseLock lock(context_.loop());
  context_.addObserver(*this);
  follow();
}

PulseRecorder::~PulseRecorder() {
  PulseLock lock(context_.loop());
  context_.removeObserver(*this);
  close();
}

void PulseRecorder::serverDidChange() {
  context_.loop().assertHeld();
  follow();
}

void PulseRecorder::follow() {
  const PulseDefaults defaults = context_.defaults();
  const auto& wanted = role_ == SoundRole::systemAudio ? defaults.systemAudio : defaults.microphone;
  const bool alive = stream_ && PA_STREAM_IS_GOOD(pa_stream_get_state(stream_));
  if (alive && device_ == wanted) return;
  close();
  pa_context* connection = context_.connection();
  if (wanted && connection) open(connection, *wanted);
}

void PulseRecorder::open(pa_context* connection, const PulseDevice& device) {
  // In the device's own rate, so that sound is resampled once: by the track, which knows its delay to the sample.
  const pa_sample_spec format{PA_SAMPLE_FLOAT32NE,
                              static_cast<uint32_t>(std::min(device.sampleRate, HostClockTrack::sampleRate)),
                              HostClockTrack::channels};
  const char* name = role_ == SoundRole::systemAudio ? "System audio" : "Microphone";
  stream_ = pa_stream_new(connection, name, &format, nullptr);
  if (!stream_) return context_.refreshLater();
  pa_stream_set_state_callback(
      stream_,
      [](pa_stream* stream, void* userdata) {
        self(userdata).context_.loop().assertHeld();
        if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) self(userdata).context_.refreshLater();
      },
      this);
  pa_stream_set_read_callback(
      stream_,
      [](pa_stream*, size_t, void* userdata) {
        self(userdata).context_.loop().assertHeld();
        self(userdata).takeWhatArrived();
      },
      this);
  pa_stream_set_latency_update_callback(
      stream_,
      [](pa_stream*, void* userdata) {
        self(userdata).context_.loop().assertHeld();
        self(userdata).takeStamp();
      },
      this);
  device_ = device;
  stampOfNext_.reset();
  settledAt_ = 0;
  next_ = Continuity::restarts;
  constexpr auto unset = static_cast<uint32_t>(-1);
  const pa_buffer_attr buffer{unset, unset, unset, unset, static_cast<uint32_t>(pa_usec_to_bytes(fragment, &format))};
  if (pa_stream_connect_record(stream_, device.source.c_str(), &buffer, streamFlags) < 0) context_.refreshLater();
}

void PulseRecorder::close() {
  device_.reset();
  if (!stream_) return;
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_set_read_callback(stream_, nullptr, nullptr);
  pa_stream_set_latency_update_callback(stream_, nullptr, nullptr);
  pa_stream_disconnect(stream_);
  pa_stream_unref(stream_);
  stream_ = nullptr;
}

void PulseRecorder::takeStamp() {
  pa_usec_t latency = 0;
  int ahead = 0;
  if (pa_stream_get_latency(stream_, &latency, &ahead) < 0) return;
  const std::int64_t age = static_cast<std::int64_t>(latency) * 1'000;
  const bool settling = settledAt_ == 0 || hostClockNow() < settledAt_;
  if (settling) next_ = Continuity::restarts;
  stampOfNext_ = ahead ? hostClockNow() + age : hostClockNow() - age;
}

void PulseRecorder::takeWhatArrived() {
  const auto sampleRate = static_cast<int>(pa_stream_get_sample_spec(stream_)->rate);
  const std::int64_t now = hostClockNow();
  // A source that paused may have lost count of time: the library's next question would be up to 1.5 s away.
  if (now - lastDelivery_.load(std::memory_order_relaxed) > longPause)
    letGo(pa_stream_update_timing_info(stream_, nullptr, nullptr));
  if (settledAt_ == 0) settledAt_ = now + settlingTime;
  for (;;) {
    const void* data = nullptr;
    size_t bytes = 0;
    if (pa_stream_peek(stream_, &data, &bytes) < 0 || bytes == 0) return;
    if (data && (next_ == Continuity::continues || stampOfNext_)) {
      const std::span samples(static_cast<const float*>(data), bytes / sizeof(float));
      ring_.write({samples, sampleRate, stampOfNext_, next_});
      next_ = Continuity::continues;
      lastDelivery_.store(now, std::memory_order_relaxed);
    } else {
      // A hole, or nothing known yet about time: what follows is placed by its own stamp.
      next_ = Continuity::restarts;
    }
    stampOfNext_.reset();
    pa_stream_drop(stream_);
  }
}

}  // namespace quillbeam
