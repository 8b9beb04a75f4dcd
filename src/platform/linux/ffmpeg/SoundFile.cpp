#include "platform/linux/ffmpeg/SoundFile.h"

#include <algorithm>

namespace quillbeam {

namespace {

/// Each unreadable packet is passed over, but an index that names nothing else is no recording.
constexpr int mostUnreadablePackets = 10'000;

Error unreadable(const char* doing, int code) {
  return Error(AudioExporterError::cannotRead).withUnderlying(avError(doing, code));
}

}  // namespace

Result<SoundFile> SoundFile::open(const Path& path) {
  // One format and one protocol: what a file claims to be must not make the library look elsewhere.
  const AVInputFormat* format = av_find_input_format("mov");
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  AVFormatContext* context = nullptr;
  const int code = avformat_open_input(&context, ("file:" + path).c_str(), format, &options);
  av_dict_free(&options);
  if (code < 0) return unreadable("Opening the file", code);
  return SoundFile(context);
}

SoundFile::SoundFile(AVFormatContext* context) : context_(context) {
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) tracks_.push_back(context->streams[i]);
  }
}

MediaTime SoundFile::end(std::size_t track) const {
  const AVStream& stream = *tracks_[track];
  if (stream.duration == AV_NOPTS_VALUE || stream.duration <= 0) return MediaTime::zero();
  const std::int64_t start = stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time;
  const std::int64_t end = (start + stream.duration) * stream.time_base.num;
  return MediaTime(std::max<std::int64_t>(end, 0), stream.time_base.den);
}

AudioTrack SoundFile::describeTrack(std::size_t track) const {
  const AVCodecParameters& parameters = *tracks_[track]->codecpar;
  return {end(track), parameters.sample_rate, parameters.ch_layout.nb_channels};
}

void SoundFile::select(const std::vector<std::size_t>& tracks) {
  for (unsigned i = 0; i < context_->nb_streams; ++i) context_->streams[i]->discard = AVDISCARD_ALL;
  for (const std::size_t track : tracks) context_->streams[tracks_[track]->index]->discard = AVDISCARD_DEFAULT;
}

Result<bool> SoundFile::read(AVPacket& packet) {
  int code = AVERROR_INVALIDDATA;
  for (int i = 0; i < mostUnreadablePackets && code == AVERROR_INVALIDDATA; ++i) {
    av_packet_unref(&packet);
    code = av_read_frame(context_.get(), &packet);
  }
  if (code >= 0) return true;
  if (code == AVERROR_EOF) return false;
  return unreadable("Reading the file", code);
}

}  // namespace quillbeam
