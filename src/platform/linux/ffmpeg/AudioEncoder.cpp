#include "platform/linux/ffmpeg/AudioEncoder.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace quillbeam {

namespace {

Error cannotEncode(std::string_view doing, int code) {
  return Error(AssetWriterError::cannotEncode).withUnderlying(avError(doing, code));
}

std::int64_t framesAt(MediaTime time, int rate) { return time.rescaled(rate).value(); }

}  // namespace

AudioEncoder::AudioEncoder(AvOwned<AVCodecContext> context)
    : context_(std::move(context)), format_(trackFormat(*context_)) {}

Result<std::unique_ptr<AudioEncoder>> AudioEncoder::create(const AudioSettings& settings) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
  const bool sane =
      settings.sampleRate > 0 && (settings.channels == 1 || settings.channels == 2) && settings.bitRate > 0;
  if (!sane || codec == nullptr) return AssetWriterError::cannotEncode;
  AvOwned<AVCodecContext> context(avcodec_alloc_context3(codec));
  context->sample_rate = settings.sampleRate;
  context->sample_fmt = AV_SAMPLE_FMT_FLTP;
  context->time_base = {1, settings.sampleRate};
  context->bit_rate = settings.bitRate;
  context->profile = FF_PROFILE_AAC_LOW;
  context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  av_channel_layout_default(&context->ch_layout, settings.channels);
  // The fast one would cost half as much, but turns steady tones that both channels share down by 1 to 3 dB.
  av_opt_set(context->priv_data, "aac_coder", "twoloop", 0);
  const int code = avcodec_open2(context.get(), codec, nullptr);
  if (code < 0) return cannotEncode("Opening the audio encoder", code);
  return std::unique_ptr<AudioEncoder>(new AudioEncoder(std::move(context)));
}

MediaTime AudioEncoder::position() const { return {converted(), context_->sample_rate}; }

std::int64_t AudioEncoder::converted() const {
  const auto pending = static_cast<std::int64_t>(pending_.size()) / context_->ch_layout.nb_channels;
  return pendingPosition_ + pending + (converter_ ? converter_->delay() : 0);
}

Result<void> AudioEncoder::encode(const AudioBlock& block, MediaTime time, const PacketSink& sink) {
  const AudioConverter::Format source{block.sampleRate, block.channels};
  const AudioConverter::Format target{context_->sample_rate, context_->ch_layout.nb_channels};
  if (!converter_ || converter_->source() != source) {
    TRY_VOID(flushConverter(sink));
    TRY(converter_, AudioConverter::create(source, target));
  }
  const std::int64_t start = framesAt(time, target.sampleRate);
  const std::int64_t tolerance = framesAt(stampTolerance, target.sampleRate);
  int skipped = 0;
  if (start - converted() > tolerance) {
    TRY_VOID(advanceTo(start, sink));
  } else if (converted() - start > tolerance) {
    skipped = static_cast<int>(std::min<std::int64_t>(
        MediaTime(converted() - start, target.sampleRate).rescaled(source.sampleRate).value(), block.frames()));
  }
  const float* samples = block.samples.data() + static_cast<std::ptrdiff_t>(skipped) * source.channels;
  TRY_VOID(converter_->convert(samples, block.frames() - skipped, pending_));
  return encodeWholeFrames(sink);
}

Result<void> AudioEncoder::encodeSilence(MediaTime time, const PacketSink& sink) {
  const std::int64_t target = framesAt(time, context_->sample_rate);
  return target > converted() ? advanceTo(target, sink) : Result<void>(success);
}

Result<void> AudioEncoder::advanceTo(std::int64_t position, const PacketSink& sink) {
  TRY_VOID(flushConverter(sink));
  const int frameSize = context_->frame_size;
  const std::int64_t gap = position - converted();
  if (gap <= framesAt(longestFilledGap, context_->sample_rate)) return appendSilence(gap, sink);
  // One whole frame of silence lets what came before fade out of the coder before its time line jumps.
  const auto pending = static_cast<int>(pending_.size()) / context_->ch_layout.nb_channels;
  TRY_VOID(appendSilence(2 * frameSize - pending, sink));
  pendingPosition_ = position;
  return success;
}

Result<void> AudioEncoder::appendSilence(std::int64_t frames, const PacketSink& sink) {
  const std::int64_t atOnce = context_->sample_rate;
  for (; frames > 0; frames -= atOnce) {
    pending_.resize(pending_.size() +
                    static_cast<std::size_t>(std::min(frames, atOnce)) * context_->ch_layout.nb_channels);
    TRY_VOID(encodeWholeFrames(sink));
  }
  return success;
}

Result<void> AudioEncoder::flushConverter(const PacketSink& sink) {
  if (!converter_) return success;
  TRY_VOID(converter_->flush(pending_));
  // A flushed resampler takes nothing more; the next block makes a fresh one whose first sample is the block's.
  const AudioConverter::Format source = converter_->source();
  TRY(converter_, AudioConverter::create(source, {context_->sample_rate, context_->ch_layout.nb_channels}));
  return encodeWholeFrames(sink);
}

Result<void> AudioEncoder::encodeWholeFrames(const PacketSink& sink) {
  const std::size_t frame = static_cast<std::size_t>(context_->frame_size) * context_->ch_layout.nb_channels;
  while (pending_.size() >= frame) TRY_VOID(encodeFrame(context_->frame_size, sink));
  return success;
}

Result<void> AudioEncoder::encodeFrame(int frames, const PacketSink& sink) {
  const int channels = context_->ch_layout.nb_channels;
  AvOwned<AVFrame> frame(av_frame_alloc());
  frame->format = AV_SAMPLE_FMT_FLTP;
  frame->nb_samples = frames;
  frame->sample_rate = context_->sample_rate;
  frame->pts = pendingPosition_;
  av_channel_layout_copy(&frame->ch_layout, &context_->ch_layout);
  const int code = av_frame_get_buffer(frame.get(), 0);
  if (code < 0) return cannotEncode("Preparing sound", code);
  for (int channel = 0; channel < channels; ++channel) {
    auto* plane = reinterpret_cast<float*>(frame->extended_data[channel]);
    for (int i = 0; i < frames; ++i) plane[i] = pending_[static_cast<std::size_t>(i) * channels + channel];
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(frames) * channels);
  pendingPosition_ += frames;
  return send(frame.get(), sink);
}

Result<void> AudioEncoder::drain(const PacketSink& sink) {
  TRY_VOID(flushConverter(sink));
  const auto left = static_cast<int>(pending_.size()) / context_->ch_layout.nb_channels;
  if (left > 0) TRY_VOID(encodeFrame(left, sink));
  return send(nullptr, sink);
}

Result<void> AudioEncoder::send(const AVFrame* frame, const PacketSink& sink) {
  int code = avcodec_send_frame(context_.get(), frame);
  if (code >= 0) code = receivePackets(*context_, sink);
  if (code < 0) return cannotEncode("Encoding sound", code);
  return success;
}

}  // namespace quillbeam
