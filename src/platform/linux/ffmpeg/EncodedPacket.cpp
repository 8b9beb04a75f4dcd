#include "platform/linux/ffmpeg/EncodedPacket.h"

#include <utility>

namespace quillbeam {

std::vector<std::int32_t> timescalesOf(const std::vector<TrackFormat>& tracks) {
  std::vector<std::int32_t> timescales;
  for (const TrackFormat& track : tracks) timescales.push_back(track.timescale);
  return timescales;
}

TrackFormat trackFormat(const AVCodecContext& encoder) {
  AvOwned<AVCodecParameters> parameters(avcodec_parameters_alloc());
  avcodec_parameters_from_context(parameters.get(), &encoder);
  return {std::shared_ptr<const AVCodecParameters>(std::move(parameters)), encoder.time_base.den};
}

int receivePackets(AVCodecContext& encoder, const PacketSink& sink) {
  while (true) {
    AvOwned<AVPacket> packet(av_packet_alloc());
    const int code = avcodec_receive_packet(&encoder, packet.get());
    if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return 0;
    if (code < 0) return code;
    EncodedPacket encoded;
    encoded.presentationTime = packet->pts;
    encoded.decodeTime = packet->dts;
    encoded.duration = packet->duration;
    encoded.isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    encoded.content = std::shared_ptr<const AVPacket>(std::move(packet));
    sink(std::move(encoded));
  }
}

}  // namespace quillbeam
