#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/ffmpeg/AvTypes.h"

namespace quillbeam::test {

struct DemuxedPacket {
  double time = 0;
  double duration = 0;
  bool isKey = false;
  std::string content;
};

/// One track of a file, read and decoded with the libraries themselves.
struct DemuxedTrack {
  std::vector<DemuxedPacket> packets;
  std::vector<double> frameTimes;  ///< of what was decoded, in seconds
  std::int64_t samples = 0;        ///< of decoded sound

  double begin() const { return packets.front().time; }
  double end() const { return packets.back().time + packets.back().duration; }
};

struct Demuxed {
  DemuxedTrack video;
  DemuxedTrack sound;
  std::string complaint;  ///< the first thing that the libraries did not like
};

namespace detail {

class TrackDecoder {
 public:
  TrackDecoder(const AVStream& stream, DemuxedTrack& track, std::string& complaint)
      : unit_(av_q2d(stream.time_base)), track_(track), complaint_(complaint) {
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    context_.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(context_.get(), stream.codecpar);
    context_->pkt_timebase = stream.time_base;
    context_->err_recognition = AV_EF_EXPLODE;
    context_->thread_count = 1;
    check(avcodec_open2(context_.get(), codec, nullptr), "opening a decoder");
  }

  void take(const AVPacket* packet) {
    if (packet != nullptr) {
      const auto* data = reinterpret_cast<const char*>(packet->data);
      track_.packets.push_back({static_cast<double>(packet->pts) * unit_, static_cast<double>(packet->duration) * unit_,
                                (packet->flags & AV_PKT_FLAG_KEY) != 0,
                                std::string(data, static_cast<std::size_t>(packet->size))});
    }
    check(avcodec_send_packet(context_.get(), packet), "decoding");
    const AvOwned<AVFrame> frame(av_frame_alloc());
    while (avcodec_receive_frame(context_.get(), frame.get()) >= 0) {
      track_.frameTimes.push_back(static_cast<double>(frame->pts) * unit_);
      track_.samples += frame->nb_samples;
      if (frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0) check(-1, "a broken frame");
    }
  }

 private:
  void check(int code, const char* doing) {
    if (code < 0 && complaint_.empty()) complaint_ = avError(doing, code).description();
  }

  const double unit_;
  DemuxedTrack& track_;
  std::string& complaint_;
  AvOwned<AVCodecContext> context_;
};

}  // namespace detail

/// Reads and decodes a whole file with at most one track of each kind.
inline Demuxed demux(const std::string& path) {
  Demuxed result;
  AVFormatContext* file = nullptr;
  int code = avformat_open_input(&file, path.c_str(), nullptr, nullptr);
  if (code < 0) return {.complaint = avError("opening", code).description()};
  avformat_find_stream_info(file, nullptr);
  std::vector<std::unique_ptr<detail::TrackDecoder>> decoders;
  for (unsigned i = 0; i < file->nb_streams; ++i) {
    const bool isVideo = file->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    decoders.push_back(std::make_unique<detail::TrackDecoder>(*file->streams[i], isVideo ? result.video : result.sound,
                                                              result.complaint));
  }
  const AvOwned<AVPacket> packet(av_packet_alloc());
  while ((code = av_read_frame(file, packet.get())) >= 0) {
    decoders[static_cast<std::size_t>(packet->stream_index)]->take(packet.get());
    av_packet_unref(packet.get());
  }
  if (code != AVERROR_EOF && result.complaint.empty()) result.complaint = avError("reading", code).description();
  for (const auto& decoder : decoders) decoder->take(nullptr);
  avformat_close_input(&file);
  return result;
}

}  // namespace quillbeam::test
