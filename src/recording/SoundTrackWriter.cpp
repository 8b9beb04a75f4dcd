#include "recording/SoundTrackWriter.h"

#include "base/Text.h"
#include "recording/WriterText.h"

namespace quillbeam {

namespace {

/// Sound that began less than this before the first picture is in place as it is.
constexpr MediaTime leadThreshold{1, 100};

}  // namespace

std::string SoundTrackWriter::line(std::string_view text) const {
  return "🎯 " + std::string(texts_.receiver) + ": " + std::string(text);
}

void SoundTrackWriter::startSession() {
  queue_.assertCurrent();
  sessionStarted_ = true;
}

bool SoundTrackWriter::accepts(const SampleBuffer& sample) const {
  queue_.assertCurrent();
  if (!sessionStarted_) {
    print("Session not started, ignoring sample");
    return false;
  }
  if (!sample.isValid()) {
    print("Invalid sample buffer");
    return false;
  }
  return true;
}

bool SoundTrackWriter::waitsForVideo() const {
  if (!parts_.timeline.expectsVideo() || parts_.timeline.recordingBaseTime()) return false;
  print("Waiting for video baseline, skipping early " + std::string(texts_.early));
  return true;
}

MediaTime SoundTrackWriter::place(const SampleBuffer& sample, std::string_view leadLinePrefix) {
  queue_.assertCurrent();
  if (!parts_.timeline.recordingBaseTime() && firstSampleTime_ == MediaTime::zero()) {
    firstSampleTime_ = sample.presentationTime();
  }
  lastSampleBuffer_ = sample;
  if (sample.block()) parts_.level.add(*sample.block());
  resolveLead(sample, leadLinePrefix);
  MediaTime place = sample.presentationTime() - base();
  if (leadOffset_ > MediaTime::zero()) place = place + leadOffset_;
  return place < MediaTime::zero() ? MediaTime::zero() : place;
}

void SoundTrackWriter::resolveLead(const SampleBuffer& sample, std::string_view leadLinePrefix) {
  const auto base = parts_.timeline.recordingBaseTime();
  if (!parts_.timeline.expectsVideo() || leadResolved_ || !base) return;
  leadResolved_ = true;
  const MediaTime lead = *base - sample.presentationTime();
  if (lead <= leadThreshold) return;
  leadOffset_ = lead;
  parts_.out.print(std::string(leadLinePrefix) + ": Applying " + std::string(texts_.lead) +
                   " lead offset: " + decimal(lead.seconds()) + "s");
}

MediaTime SoundTrackWriter::base() const { return parts_.timeline.recordingBaseTime().value_or(firstSampleTime_); }

bool SoundTrackWriter::writerSessionStarted(std::string_view dropLine) const {
  if (parts_.timeline.assetWriterSessionStarted()) return true;
  parts_.out.print(dropLine);
  return false;
}

SoundTrackWriter::Outcome SoundTrackWriter::write(const SampleBuffer& sample, MediaTime place, Attempt attempt) {
  queue_.assertCurrent();
  const auto copy = sample.copyWithNewTiming({sample.duration(), place, sample.timing().decodeTime});
  if (!copy) {
    print("Couldn't copy CMSampleBuffer, dropping frame");
    return Outcome::dropped;
  }
  if (parts_.assetWriter.status() != AssetWriter::Status::writing) {
    print(attempt == Attempt::retry
              ? "AssetWriter not ready on retry, dropping frame"
              : "AssetWriter not ready (status: " + rawStatus(parts_.assetWriter) + "), dropping frame");
    // The upload goes on without the file.
    if (parts_.alsoTo && parts_.assetWriter.status() == AssetWriter::Status::failed) parts_.alsoTo(sample);
    return Outcome::dropped;
  }
  const bool appended = parts_.input.append(*copy);
  if (parts_.alsoTo) parts_.alsoTo(sample);
  if (!appended) {
    parts_.out.print("⚠️ " + std::string(texts_.receiver) + ": " + std::string(texts_.input) +
                     ".append() returned false! Writer status: " + rawStatus(parts_.assetWriter) +
                     ", error: " + errorText(parts_.assetWriter));
    return Outcome::refused;
  }
  ++sampleCount_;
  return Outcome::appended;
}

void SoundTrackWriter::summarize(int fewSamples) const {
  queue_.assertCurrent();
  const std::string count = std::to_string(sampleCount_);
  print("Total " + std::string(texts_.samples) + " captured: " + count);
  if (sampleCount_ <= fewSamples) {
    parts_.out.print("⚠️ Warning: Very few " + std::string(texts_.samples) + " captured (" + count +
                     ") - recording may be too short");
  }
  if (!lastSampleBuffer_.isValid()) {
    print("No " + std::string(texts_.samples) + " captured");
    return;
  }
  const MediaTime final = lastSampleBuffer_.presentationTime() - firstSampleTime_;
  print("Final " + std::string(texts_.final) + " time: " + decimal(final.seconds()));
}

}  // namespace quillbeam
