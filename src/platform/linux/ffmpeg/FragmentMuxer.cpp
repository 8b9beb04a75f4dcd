#include "platform/linux/ffmpeg/FragmentMuxer.h"

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace quillbeam {

namespace {

constexpr int outputBufferSize = 64 * 1024;
/// Of a fragment of ten seconds; more makes the buffer grow once.
constexpr std::size_t roomForFragmentHeader = 16 * 1024;

bool isInitialization(BoxType type) { return type == boxType("ftyp") || type == boxType("moov"); }
bool isMedia(BoxType type) { return type == boxType("moof") || type == boxType("mdat"); }

}  // namespace

Result<std::unique_ptr<FragmentMuxer>> FragmentMuxer::create(const std::vector<TrackFormat>& tracks) {
  std::unique_ptr<FragmentMuxer> muxer(new FragmentMuxer);
  TRY_VOID(muxer->open(tracks));
  return muxer;
}

Result<void> FragmentMuxer::open(const std::vector<TrackFormat>& tracks) {
  int code = avformat_alloc_output_context2(&context_, nullptr, "mp4", nullptr);
  if (code < 0) return avError("Opening the muxer", code);
  auto* buffer = static_cast<unsigned char*>(av_malloc(outputBufferSize));
  context_->pb = avio_alloc_context(buffer, outputBufferSize, 1, this, nullptr, &FragmentMuxer::receive, nullptr);
  context_->pb->seekable = 0;
  context_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
  for (const TrackFormat& track : tracks) {
    AVStream* stream = avformat_new_stream(context_, nullptr);
    code = avcodec_parameters_copy(stream->codecpar, track.parameters.get());
    if (code < 0) return avError("Describing a track", code);
    stream->time_base = {1, track.timescale};
    // Every track is played: a meeting's far side and near side are heard together.
    stream->disposition = AV_DISPOSITION_DEFAULT;
    timescales_.push_back(track.timescale);
  }
  AVDictionary* options = nullptr;
  // Without delay_moov there are no edit lists, and sound and pictures part by the encoders' delays.
  av_dict_set(&options, "movflags", "frag_custom+delay_moov+default_base_moof+skip_trailer", 0);
  av_dict_set_int(&options, "movie_timescale", timescales_.back(), 0);
  av_dict_set_int(&options, "use_editlist", 1, 0);
  av_dict_set(&options, "avoid_negative_ts", "disabled", 0);
  code = avformat_write_header(context_, &options);
  av_dict_free(&options);
  if (code < 0) return avError("Opening the muxer", code);
  return success;
}

FragmentMuxer::~FragmentMuxer() {
  if (context_ == nullptr) return;
  if (context_->pb != nullptr) {
    av_freep(&context_->pb->buffer);
    avio_context_free(&context_->pb);
  }
  avformat_free_context(context_);
}

int FragmentMuxer::receive(void* self, std::uint8_t* bytes, int size) {
  Bytes& output = static_cast<FragmentMuxer*>(self)->output_;
  output.insert(output.end(), bytes, bytes + size);
  return size;
}

Result<void> FragmentMuxer::write(std::size_t track, const EncodedPacket& packet) {
  AvOwned<AVPacket> copy(av_packet_alloc());
  int code = av_packet_ref(copy.get(), packet.content.get());
  if (code < 0) return avError("Muxing", code);
  copy->stream_index = static_cast<int>(track);
  copy->pts = packet.presentationTime;
  copy->dts = packet.decodeTime;
  copy->duration = packet.duration;
  av_packet_rescale_ts(copy.get(), {1, timescales_[track]}, context_->streams[track]->time_base);
  code = av_write_frame(context_, copy.get());
  if (code < 0) return avError("Muxing", code);
  pendingBytes_ += static_cast<std::size_t>(packet.byteCount());
  return success;
}

Result<Bytes> FragmentMuxer::flush(bool (*belongs)(BoxType)) {
  // The answer tells whether packets were waiting, not whether they were written.
  av_write_frame(context_, nullptr);
  avio_flush(context_->pb);
  if (context_->pb->error < 0) return avError("Muxing", context_->pb->error);
  Bytes output = std::exchange(output_, {});
  const auto boxes = parseBoxes(output);
  if (!boxes) return avError("Muxing", AVERROR_BUG);
  if (std::ranges::all_of(*boxes, belongs, &BoxView::type)) return output;
  Bytes kept;
  for (const BoxView& box : *boxes) {
    if (belongs(box.type)) kept.insert(kept.end(), box.bytes.begin(), box.bytes.end());
  }
  return kept;
}

Result<MuxedFragment> FragmentMuxer::cut() {
  MuxedFragment fragment;
  // The first flush puts out the initialization alone.
  if (!std::exchange(initializationWritten_, true)) {
    TRY(fragment.initialization, flush(isInitialization));
  }
  output_.reserve(std::exchange(pendingBytes_, 0) + roomForFragmentHeader);
  TRY(fragment.media, flush(isMedia));
  return fragment;
}

}  // namespace quillbeam
