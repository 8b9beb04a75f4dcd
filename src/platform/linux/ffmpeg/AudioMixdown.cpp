#include "platform/linux/ffmpeg/AudioMixdown.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace quillbeam {

namespace {

constexpr int rate = SoundTrackDecoder::sampleRate;
constexpr int channels = SoundTrackDecoder::channels;
constexpr AudioSettings outputSettings{rate, channels, 128'000, 64};

/// Small enough for the processor's cache, a multiple of the coder's frame.
constexpr std::int64_t blockFrames = 4096;

/// Between steps the export can be cancelled.
constexpr int packetsPerStep = 64;

/// A track whose packets lie further behind another's is silent until they come.
constexpr std::int64_t mostHeldFrames = 10 * rate;

/// What the file and the encoder say, in the exporter's words.
Error exportError(const Error& error) {
  if (error.is(AssetWriterError::cannotEncode)) {
    return Error(AudioExporterError::cannotEncode).withUnderlying(error);
  }
  const Error reason = error.underlying() != nullptr ? *error.underlying() : error;
  const bool isFull = error.is(AssetWriterError::diskFull) ||
                      (reason.domain() == posixErrorDomain && (reason.code() == ENOSPC || reason.code() == EDQUOT));
  return Error(isFull ? AudioExporterError::diskFull : AudioExporterError::writeFailed).withUnderlying(reason);
}

Result<void> exported(Result<void> result) { return result ? result : Result<void>(exportError(result.error())); }

}  // namespace

Result<std::unique_ptr<AudioMixdown>> AudioMixdown::create(const AudioMix& mix) {
  TRY(SoundFile source, SoundFile::open(mix.source));
  if (mix.tracks.empty()) return AudioExporterError::noSuchTrack;
  std::vector<Voice> voices;
  std::vector<std::size_t> selected;
  MediaTime length = MediaTime::zero();
  for (const auto& [index, volume] : mix.tracks) {
    if (index < 0 || index >= std::ssize(source.tracks())) return AudioExporterError::noSuchTrack;
    selected.push_back(static_cast<std::size_t>(index));
    const MediaTime end = source.end(selected.back());
    length = std::max(length, end);
    TRY(auto decoder, SoundTrackDecoder::create(*source.tracks()[selected.back()], end));
    voices.push_back({std::move(decoder), static_cast<float>(volume)});
  }
  source.select(selected);
  std::unique_ptr<AudioMixdown> mixdown(new AudioMixdown(std::move(source), std::move(voices), length));
  TRY_VOID(exported(mixdown->open(mix.output)));
  return mixdown;
}

AudioMixdown::AudioMixdown(SoundFile source, std::vector<Voice> voices, MediaTime expectedLength)
    : source_(std::move(source)),
      voices_(std::move(voices)),
      expectedLength_(expectedLength),
      packet_(av_packet_alloc()) {}

Result<void> AudioMixdown::open(const Path& output) {
  TRY(encoder_, AudioEncoder::create(outputSettings));
  TRY(file_, MixedSoundFile::create(output, encoder_->format(), expectedLength_));
  return success;
}

Result<AudioMixdown::Progress> AudioMixdown::step() {
  const std::int64_t blockEnd = position_ + blockFrames;
  TRY_VOID(decodeTowards(blockEnd));
  if (needsPackets(blockEnd)) return Progress::some;
  if (!hasEnded() || blockEnd <= end()) {
    for (Voice& voice : voices_) {
      if (!voice.decoder->hasReached(blockEnd)) voice.decoder->flush();
    }
    TRY_VOID(exported(mixUntil(blockEnd)));
    return Progress::some;
  }
  TRY_VOID(exported(finish(end())));
  return Progress::ended;
}

bool AudioMixdown::needsPackets(std::int64_t position) const {
  const auto hasReached = [&](const Voice& voice) { return voice.decoder->hasReached(position); };
  return heldFrames() < mostHeldFrames && !std::ranges::all_of(voices_, hasReached);
}

Result<void> AudioMixdown::decodeTowards(std::int64_t position) {
  for (int i = 0; i < packetsPerStep && needsPackets(position); ++i) {
    TRY(const bool isThere, source_.read(*packet_));
    if (isThere) {
      dispatch(*packet_);
      av_packet_unref(packet_.get());
      continue;
    }
    for (Voice& voice : voices_) voice.decoder->finish();
  }
  return success;
}

void AudioMixdown::dispatch(const AVPacket& packet) {
  for (Voice& voice : voices_) {
    if (voice.decoder->streamIndex() == packet.stream_index) voice.decoder->take(packet);
  }
}

Result<void> AudioMixdown::mixUntil(std::int64_t end) {
  block_.assign(static_cast<std::size_t>((end - position_) * channels), 0);
  for (Voice& voice : voices_) voice.decoder->addTo(block_, position_, voice.volume);
  const std::int64_t skipped = std::clamp<std::int64_t>(PeakLimiter::lookAhead - position_, 0, end - position_);
  limiter_.process(block_);
  position_ = end;
  return encode(skipped);
}

template <class Code>
Result<void> AudioMixdown::intoFile(Code code) {
  Result<void> written = success;
  const PacketSink append = [&](EncodedPacket packet) {
    if (written) written = file_->append(std::move(packet));
  };
  TRY_VOID(code(append));
  return written;
}

Result<void> AudioMixdown::encode(std::int64_t skipped) {
  block_.erase(block_.begin(), block_.begin() + skipped * channels);
  const std::int64_t frames = std::ssize(block_) / channels;
  const MediaTime time(position_ - frames - PeakLimiter::lookAhead, rate);
  AudioBlock block{rate, channels, std::move(block_)};
  auto written = intoFile([&](const PacketSink& sink) { return encoder_->encode(block, time, sink); });
  block_ = std::move(block.samples);
  return written;
}

Result<void> AudioMixdown::finish(std::int64_t end) {
  TRY_VOID(mixUntil(end));
  // Silence pushes out what the limiter still holds; of nothing, the shortest file that plays.
  TRY_VOID(mixUntil(end + PeakLimiter::lookAhead));
  const std::int64_t frames = std::max<std::int64_t>(end, encoder_->format().parameters->frame_size);
  const MediaTime length(frames, rate);
  TRY_VOID(intoFile([&](const PacketSink& sink) { return encoder_->encodeSilence(length, sink); }));
  TRY_VOID(intoFile([&](const PacketSink& sink) { return encoder_->drain(sink); }));
  return file_->publish(length);
}

bool AudioMixdown::hasEnded() const {
  return std::ranges::all_of(voices_, [](const Voice& voice) { return voice.decoder->hasEnded(); });
}

std::int64_t AudioMixdown::end() const {
  std::int64_t end = 0;
  for (const Voice& voice : voices_) end = std::max(end, voice.decoder->position());
  return end;
}

std::int64_t AudioMixdown::heldFrames() const {
  std::int64_t most = 0;
  for (const Voice& voice : voices_) most = std::max(most, voice.decoder->heldFrames());
  return most;
}

double AudioMixdown::progress() const {
  const double total = expectedLength_.seconds() * rate;
  return total > 0 ? std::min(1.0, static_cast<double>(position_) / total) : 0;
}

}  // namespace quillbeam
