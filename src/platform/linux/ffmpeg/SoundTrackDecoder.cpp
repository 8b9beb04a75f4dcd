#include "platform/linux/ffmpeg/SoundTrackDecoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "platform/media/AudioExporter.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace quillbeam {

namespace {

/// Stamps that are off by less are rounding. A thousandth of a second, as a fraction of the rate.
constexpr int toleranceDivisor = 1'000;

/// Damaged packets decode to anything; sound is never louder than this.
constexpr float loudestSample = 64;

AvOwned<SwrContext> makeResampler(const AVFrame& frame) {
  AVChannelLayout source;
  AVChannelLayout target;
  av_channel_layout_default(&source, frame.ch_layout.nb_channels);
  av_channel_layout_default(&target, SoundTrackDecoder::channels);
  SwrContext* context = nullptr;
  swr_alloc_set_opts2(&context, &target, AV_SAMPLE_FMT_FLT, SoundTrackDecoder::sampleRate, &source,
                      static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
  AvOwned<SwrContext> resampler(context);
  if (!resampler) return nullptr;
  // Left to itself, the library plays one channel on two 3 dB lower.
  constexpr std::array<double, 2> both{1, 1};
  if (frame.ch_layout.nb_channels == 1 && swr_set_matrix(context, both.data(), 1) < 0) return nullptr;
  return swr_init(context) < 0 ? nullptr : std::move(resampler);
}

}  // namespace

Result<std::unique_ptr<SoundTrackDecoder>> SoundTrackDecoder::create(const AVStream& stream, MediaTime end) {
  const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  if (codec == nullptr) return AudioExporterError::cannotRead;
  AvOwned<AVCodecContext> context(avcodec_alloc_context3(codec));
  int code = avcodec_parameters_to_context(context.get(), stream.codecpar);
  context->pkt_timebase = stream.time_base;
  context->thread_count = 1;
  if (code >= 0) code = avcodec_open2(context.get(), codec, nullptr);
  if (code < 0) return Error(AudioExporterError::cannotRead).withUnderlying(avError("Opening the decoder", code));
  std::unique_ptr<SoundTrackDecoder> decoder(new SoundTrackDecoder(stream, std::move(context)));
  // A file in fragments does not say where a track starts, and then not where it ends.
  const bool isEndKnown = end > MediaTime::zero() && stream.start_time != AV_NOPTS_VALUE;
  if (isEndKnown) decoder->end_ = end.rescaled(sampleRate).value();
  return decoder;
}

SoundTrackDecoder::SoundTrackDecoder(const AVStream& stream, AvOwned<AVCodecContext> context)
    : context_(std::move(context)), frame_(av_frame_alloc()), streamIndex_(stream.index), timeBase_(stream.time_base) {}

void SoundTrackDecoder::take(const AVPacket& packet) {
  const bool isTorn = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
  if (isTorn || avcodec_send_packet(context_.get(), &packet) < 0) {
    // What follows is not to be blended with what went before.
    avcodec_flush_buffers(context_.get());
    return;
  }
  receive();
}

void SoundTrackDecoder::finish() {
  avcodec_send_packet(context_.get(), nullptr);
  receive();
  flush();
  finished_ = true;
}

void SoundTrackDecoder::flush() {
  if (resampler_) convert(nullptr, 0, 0);
  resampler_.reset();
}

void SoundTrackDecoder::receive() {
  while (avcodec_receive_frame(context_.get(), frame_.get()) >= 0) {
    place(*frame_);
    av_frame_unref(frame_.get());
  }
}

void SoundTrackDecoder::place(const AVFrame& frame) {
  if (frame.nb_samples <= 0 || frame.sample_rate <= 0) return;
  const Format format{frame.format, frame.sample_rate, frame.ch_layout.nb_channels};
  const std::int64_t expected = sourceStart_ + sourceFrames_;
  const std::int64_t start =
      frame.pts == AV_NOPTS_VALUE ? expected : av_rescale_q(frame.pts, timeBase_, {1, frame.sample_rate});
  const std::int64_t tolerance = frame.sample_rate / toleranceDivisor;
  const std::int64_t earliest = format == format_ ? expected : 0;
  if (!resampler_ || format != format_ || start > expected + tolerance) {
    restart(frame, format, std::max(start, earliest));
  }
  if (!resampler_) return;
  const std::int64_t late = sourceStart_ + sourceFrames_ - start;
  const int skipped = late > tolerance ? static_cast<int>(std::min<std::int64_t>(late, frame.nb_samples)) : 0;
  convert(&frame, skipped, frame.nb_samples - skipped);
}

void SoundTrackDecoder::restart(const AVFrame& frame, Format format, std::int64_t start) {
  flush();
  resampler_ = makeResampler(frame);
  format_ = format;
  sourceStart_ = start;
  sourceFrames_ = 0;
  const std::int64_t position = av_rescale(start, sampleRate, format.sampleRate);
  position_ = std::max(position_, std::min(position, end_.value_or(position)));
}

void SoundTrackDecoder::convert(const AVFrame* frame, int skipped, int frames) {
  if (frame != nullptr && frames == 0) return;
  std::array<const std::uint8_t*, AV_NUM_DATA_POINTERS> input{};
  if (frame != nullptr) {
    const auto format = static_cast<AVSampleFormat>(frame->format);
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const int planes = isPlanar ? std::min<int>(frame->ch_layout.nb_channels, AV_NUM_DATA_POINTERS) : 1;
    const int step = av_get_bytes_per_sample(format) * (isPlanar ? 1 : frame->ch_layout.nb_channels);
    for (int i = 0; i < planes; ++i) input[i] = frame->extended_data[i] + static_cast<std::ptrdiff_t>(skipped) * step;
  }
  const int room = swr_get_out_samples(resampler_.get(), frames);
  std::vector<float> samples(static_cast<std::size_t>(std::max(room, 0)) * channels);
  auto* output = reinterpret_cast<std::uint8_t*>(samples.data());
  const int written = swr_convert(resampler_.get(), &output, room, frame != nullptr ? input.data() : nullptr, frames);
  sourceFrames_ += frames;
  samples.resize(static_cast<std::size_t>(std::max(written, 0)) * channels);
  append(std::move(samples));
}

void SoundTrackDecoder::append(std::vector<float> samples) {
  if (end_) {
    const std::int64_t room = std::max<std::int64_t>(*end_ - position_, 0) * channels;
    if (std::ssize(samples) > room) samples.resize(static_cast<std::size_t>(room));
  }
  if (samples.empty()) return;
  for (float& sample : samples) sample = std::abs(sample) <= loudestSample ? sample : 0;
  pieces_.push_back({position_, std::move(samples)});
  heldFrames_ += pieces_.back().frames();
  position_ = pieces_.back().end();
}

void SoundTrackDecoder::addTo(std::span<float> block, std::int64_t position, float volume) {
  const std::int64_t blockEnd = position + static_cast<std::int64_t>(block.size()) / channels;
  for (const Piece& piece : pieces_) {
    if (piece.start >= blockEnd) break;
    const std::int64_t begin = std::max(piece.start, position);
    const std::int64_t end = std::min(piece.end(), blockEnd);
    if (begin >= end) continue;
    const float* from = piece.samples.data() + (begin - piece.start) * channels;
    float* to = block.data() + (begin - position) * channels;
    for (std::int64_t i = 0; i < (end - begin) * channels; ++i) to[i] += volume * from[i];
  }
  while (!pieces_.empty() && pieces_.front().end() <= blockEnd) {
    heldFrames_ -= pieces_.front().frames();
    pieces_.pop_front();
  }
}

}  // namespace quillbeam
