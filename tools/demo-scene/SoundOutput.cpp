#include "SoundOutput.h"

namespace quillbeam::demo {

std::optional<SoundOutput> SoundOutput::open(const std::string& sink, std::chrono::milliseconds buffered) {
  const pa_sample_spec format{PA_SAMPLE_FLOAT32LE, soundRate, 1};
  pa_buffer_attr buffer{};
  buffer.maxlength = buffer.prebuf = buffer.minreq = buffer.fragsize = static_cast<std::uint32_t>(-1);
  buffer.tlength = static_cast<std::uint32_t>(buffered.count() * soundRate / 1000 * sizeof(float));
  pa_simple* stream = pa_simple_new(nullptr, "demo-scene", PA_STREAM_PLAYBACK, sink.empty() ? nullptr : sink.c_str(),
                                    "tone", &format, nullptr, &buffer, nullptr);
  if (!stream) return std::nullopt;
  return SoundOutput(stream);
}

bool SoundOutput::write(std::span<const float> samples) {
  return pa_simple_write(stream_.get(), samples.data(), samples.size_bytes(), nullptr) >= 0;
}

std::chrono::microseconds SoundOutput::latency() {
  return std::chrono::microseconds(pa_simple_get_latency(stream_.get(), nullptr));
}

}  // namespace quillbeam::demo
