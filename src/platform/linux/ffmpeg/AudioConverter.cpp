#include "platform/linux/ffmpeg/AudioConverter.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace quillbeam {

Result<std::unique_ptr<AudioConverter>> AudioConverter::create(Format from, Format to) {
  if (from.sampleRate <= 0 || from.channels <= 0) return CommonError::invalidArgument;
  AvOwned<SwrContext> resampler;
  if (from != to) {
    AVChannelLayout source;
    AVChannelLayout target;
    av_channel_layout_default(&source, from.channels);
    av_channel_layout_default(&target, to.channels);
    SwrContext* context = nullptr;
    int code = swr_alloc_set_opts2(&context, &target, AV_SAMPLE_FMT_FLT, to.sampleRate, &source, AV_SAMPLE_FMT_FLT,
                                   from.sampleRate, 0, nullptr);
    resampler.reset(context);
    if (code >= 0) code = swr_init(context);
    if (code < 0) return avError("Opening the resampler", code);
  }
  return std::unique_ptr<AudioConverter>(new AudioConverter(from, to, std::move(resampler)));
}

Result<void> AudioConverter::convert(const float* samples, int frames, std::vector<float>& output) {
  if (!resampler_) {
    output.insert(output.end(), samples, samples + static_cast<std::ptrdiff_t>(frames) * from_.channels);
    return success;
  }
  const int room = swr_get_out_samples(resampler_.get(), frames);
  const std::size_t start = output.size();
  output.resize(start + static_cast<std::size_t>(room) * to_.channels);
  const auto* in = reinterpret_cast<const std::uint8_t*>(samples);
  auto* out = reinterpret_cast<std::uint8_t*>(output.data() + start);
  const int written = swr_convert(resampler_.get(), &out, room, samples == nullptr ? nullptr : &in, frames);
  output.resize(start + static_cast<std::size_t>(written > 0 ? written : 0) * to_.channels);
  if (written < 0) return avError("Resampling", written);
  return success;
}

Result<void> AudioConverter::flush(std::vector<float>& output) {
  return resampler_ ? convert(nullptr, 0, output) : Result<void>(success);
}

std::int64_t AudioConverter::delay() const { return resampler_ ? swr_get_delay(resampler_.get(), to_.sampleRate) : 0; }

}  // namespace quillbeam
