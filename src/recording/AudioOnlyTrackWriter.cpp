#include "recording/AudioOnlyTrackWriter.h"

#include <string>

#include "base/Text.h"

namespace quillbeam {

void AudioOnlyTrackWriter::startSession() {
  queue_.assertCurrent();
  sessionStarted_ = true;
}

SampleDisposition AudioOnlyTrackWriter::write(const SampleBuffer& sample, const Texts& texts) {
  queue_.assertCurrent();
  if (!sessionStarted_ || !sample.isValid()) return SampleDisposition::ignored;
  const MediaTime at = place(sample, texts.firstSample);
  if (!parts_.input.isReadyForMoreMediaData()) return SampleDisposition::ignored;
  if (!parts_.session.hasStarted()) {
    parts_.out.print(texts.sessionNotStarted);
    return SampleDisposition::ignored;
  }
  append(sample, at);
  if (parts_.alsoTo) parts_.alsoTo(sample);
  return SampleDisposition::taken;
}

MediaTime AudioOnlyTrackWriter::place(const SampleBuffer& sample, std::string_view firstSampleLine) {
  if (!firstSampleTime_) {
    firstSampleTime_ = sample.presentationTime();
    parts_.session.startIfNeeded(MediaTime::zero());
    parts_.out.print(firstSampleLine);
  }
  lastSampleBuffer_ = sample;
  if (sample.block()) level_.add(*sample.block());
  return sample.presentationTime() - *firstSampleTime_;
}

void AudioOnlyTrackWriter::append(const SampleBuffer& sample, MediaTime place) {
  if (parts_.assetWriter.status() != AssetWriter::Status::writing) return;
  const auto copy = sample.copyWithNewTiming({sample.duration(), place, sample.timing().decodeTime});
  if (!copy || !parts_.input.append(*copy)) return;
  writtenNanoseconds_.store((place + sample.duration()).toNanoseconds().count(), std::memory_order_relaxed);
}

void AudioOnlyTrackWriter::summarize(std::string_view finalLine, std::string_view noSamplesLine) const {
  queue_.assertCurrent();
  if (!firstSampleTime_) return parts_.out.print(noSamplesLine);
  const MediaTime last = lastSampleBuffer_.presentationTime() - *firstSampleTime_;
  parts_.out.print(std::string(finalLine) + decimal(last.seconds()));
}

}  // namespace quillbeam
