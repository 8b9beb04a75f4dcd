#include "platform/linux/ffmpeg/FfmpegAssetWriterInput.h"

#include "platform/linux/ffmpeg/WriterEngine.h"

namespace quillbeam {

namespace {

/// Half a second at the capture rate: what an encoder may be late before pictures are dropped.
constexpr std::int64_t picturesDeep = 12;
constexpr std::int64_t soundDeep = 5'000'000'000;  ///< nanoseconds

}  // namespace

FfmpegAssetWriterInput::FfmpegAssetWriterInput(const WriterEngine& writer, const SessionTimes& session,
                                               const VideoSettings& settings, WorkSignal& consumer)
    : writer_(writer),
      session_(session),
      video_(settings),
      queue_(SampleQueue::Measure::pictures, picturesDeep, consumer) {}

FfmpegAssetWriterInput::FfmpegAssetWriterInput(const WriterEngine& writer, const SessionTimes& session,
                                               const AudioSettings& settings, WorkSignal& consumer)
    : writer_(writer),
      session_(session),
      audio_(settings),
      queue_(SampleQueue::Measure::nanoseconds, soundDeep, consumer) {}

bool FfmpegAssetWriterInput::isReadyForMoreMediaData() const {
  if (writer_.status() == AssetWriter::Status::failed) return true;
  return writer_.status() == AssetWriter::Status::writing && !queue_.isFull();
}

bool FfmpegAssetWriterInput::append(const SampleBuffer& sample) {
  if (writer_.status() != AssetWriter::Status::writing || !accepts(sample)) return false;
  const auto time = session_.relative(sample.presentationTime());
  if (!time || (lastTime_.isValid() && *time <= lastTime_)) return false;
  auto placed = sample.copyWithNewTiming({sample.duration(), *time, MediaTime::invalid()});
  if (!placed || !queue_.push(*std::move(placed))) return false;
  lastTime_ = *time;
  return true;
}

bool FfmpegAssetWriterInput::accepts(const SampleBuffer& sample) const {
  if (!sample.isValid()) return false;
  if (video_) {
    const auto& picture = sample.picture();
    return picture && picture->width() == video_->width && picture->height() == video_->height;
  }
  const auto& block = sample.block();
  return block && block->sampleRate > 0 && block->channels > 0 && block->frames() > 0;
}

}  // namespace quillbeam
