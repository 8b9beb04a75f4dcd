#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

/// The libraries' objects with owners.
struct AvDeleter {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(SwrContext* context) const { swr_free(&context); }
};
template <class T>
using AvOwned = std::unique_ptr<T, AvDeleter>;

/// A failed library call: domain "FFmpegError", code as the library gives it, text "<doing>: <the library's text>".
Error avError(std::string_view doing, int code);

}  // namespace quillbeam
