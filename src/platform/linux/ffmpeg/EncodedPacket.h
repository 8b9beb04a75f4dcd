#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/linux/ffmpeg/AvTypes.h"

namespace quillbeam {

/// One coded picture or sound frame. The content is shared and immutable, so that one encoder can feed several muxers;
/// the times are this copy's own. Ticks of the track's timescale; `duration` reaches to the next packet's decoding
/// time.
struct EncodedPacket {
  std::shared_ptr<const AVPacket> content;
  std::int64_t presentationTime = 0;
  std::int64_t decodeTime = 0;
  std::int64_t duration = 0;
  bool isKey = false;

  std::int64_t byteCount() const { return content ? content->size : 0; }
};

/// Takes what an encoder puts out, in decoding order, on the thread that feeds the encoder.
using PacketSink = std::function<void(EncodedPacket packet)>;

/// A track's format as an encoder settled on it.
struct TrackFormat {
  std::shared_ptr<const AVCodecParameters> parameters;
  std::int32_t timescale = 0;  ///< ticks per second
};

std::vector<std::int32_t> timescalesOf(const std::vector<TrackFormat>& tracks);

/// The format of an opened encoder.
TrackFormat trackFormat(const AVCodecContext& encoder);
/// Hands everything that is ready in `encoder` to `sink`. Zero, or the library's error.
int receivePackets(AVCodecContext& encoder, const PacketSink& sink);

}  // namespace quillbeam
