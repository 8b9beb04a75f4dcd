#include "platform/linux/ffmpeg/VideoEncoder.h"

#include <string>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace quillbeam {

namespace {

constexpr int finestQuantizer = 14;

void configure(AVCodecContext& context, const VideoSettings& settings) {
  context.width = settings.width;
  context.height = settings.height;
  context.pix_fmt = AV_PIX_FMT_YUV420P;
  context.time_base = {1, VideoEncoder::timescale};
  context.framerate = {settings.expectedSourceFrameRate, 1};
  context.sample_aspect_ratio = {1, 1};
  context.bit_rate = settings.averageBitRate;
  // A screen at rest leaves the rate unused; without a floor the next motion would be coded far beyond what eyes can
  // see.
  context.qmin = finestQuantizer;
  context.gop_size = settings.maxKeyFrameInterval;
  context.profile = FF_PROFILE_H264_HIGH;
  context.thread_count = 1;
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  context.color_range = AVCOL_RANGE_MPEG;
  context.color_primaries = AVCOL_PRI_BT709;
  context.color_trc = AVCOL_TRC_IEC61966_2_1;
  context.colorspace = AVCOL_SPC_SMPTE170M;
  // More than one B-frame, or choosing them adaptively, costs half as much time again on meeting content.
  context.max_b_frames = settings.allowFrameReordering ? 1 : 0;
  // Below this preset two cores have no room left for two outputs; it looks ahead no further than the B-frame needs.
  av_opt_set(context.priv_data, "preset", "superfast", 0);
  av_opt_set(context.priv_data, "x264-params", "b-adapt=0:rc-lookahead=0:sync-lookahead=0:sliced-threads=0", 0);
  av_opt_set(context.priv_data, "forced-idr", "1", 0);
}

/// Planes of a picture that the frame keeps alive; nothing is copied until the encoder takes them in.
AvOwned<AVFrame> wrap(std::shared_ptr<const PixelBuffer> picture) {
  AvOwned<AVFrame> frame(av_frame_alloc());
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = picture->width();
  frame->height = picture->height();
  const Plane planes[] = {picture->y(), picture->u(), picture->v()};
  for (int i = 0; i < 3; ++i) {
    frame->data[i] = const_cast<std::uint8_t*>(planes[i].data);
    frame->linesize[i] = planes[i].stride;
  }
  auto* owner = new std::shared_ptr<const PixelBuffer>(std::move(picture));
  const auto release = [](void* opaque, std::uint8_t*) {
    delete static_cast<std::shared_ptr<const PixelBuffer>*>(opaque);
  };
  frame->buf[0] = av_buffer_create(frame->data[0], 1, release, owner, AV_BUFFER_FLAG_READONLY);
  return frame;
}

Error cannotEncode(std::string_view doing, int code) {
  return Error(AssetWriterError::cannotEncode).withUnderlying(avError(doing, code));
}

}  // namespace

VideoEncoder::VideoEncoder(AvOwned<AVCodecContext> context)
    : context_(std::move(context)), format_(trackFormat(*context_)) {}

Result<std::unique_ptr<VideoEncoder>> VideoEncoder::create(const VideoSettings& settings) {
  const bool sane = settings.width > 0 && settings.height > 0 && settings.width % 2 == 0 && settings.height % 2 == 0 &&
                    settings.averageBitRate > 0 && settings.expectedSourceFrameRate > 0 &&
                    settings.maxKeyFrameInterval > 0;
  const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
  if (!sane || codec == nullptr) return AssetWriterError::cannotEncode;
  AvOwned<AVCodecContext> context(avcodec_alloc_context3(codec));
  configure(*context, settings);
  const int code = avcodec_open2(context.get(), codec, nullptr);
  if (code < 0) return cannotEncode("Opening the video encoder", code);
  return std::unique_ptr<VideoEncoder>(new VideoEncoder(std::move(context)));
}

Result<void> VideoEncoder::encode(std::shared_ptr<const PixelBuffer> picture, std::int64_t presentationTime,
                                  KeyFrame keyFrame, const PacketSink& sink) {
  AvOwned<AVFrame> frame = wrap(std::move(picture));
  frame->pts = presentationTime;
  frame->pict_type = keyFrame == KeyFrame::forced ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  return send(frame.get(), sink);
}

Result<void> VideoEncoder::drain(const PacketSink& sink) { return send(nullptr, sink); }

Result<void> VideoEncoder::send(const AVFrame* frame, const PacketSink& sink) {
  int code = avcodec_send_frame(context_.get(), frame);
  if (code >= 0) code = receivePackets(*context_, sink);
  if (code < 0) return cannotEncode("Encoding a picture", code);
  return success;
}

}  // namespace quillbeam
