#include "platform/sim/SimSegmentWriter.h"

#include <algorithm>
#include <utility>

#include "platform/sim/SimMovieFile.h"

namespace quillbeam {

using namespace simMovieFile;

std::int64_t SimSegmentedMovie::bytesDelivered() const {
  std::int64_t bytes = 0;
  for (const Segment& segment : segments) bytes += static_cast<std::int64_t>(segment.bytes.size());
  return bytes;
}

Bytes simSegmentContent(std::size_t recording, std::size_t index, std::size_t size) {
  constexpr std::size_t headerSize = 8;
  Bytes bytes(std::max(size, headerSize));
  for (std::size_t i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(bytes.size() >> (24 - 8 * i));
  std::ranges::copy(std::string_view(index == 0 ? "ftyp" : "moof"), bytes.begin() + 4);
  std::uint32_t state = static_cast<std::uint32_t>(recording * 1'000'003 + index * 7'919 + 1);
  for (std::size_t i = headerSize; i < bytes.size(); ++i) {
    state = state * 1'664'525 + 1'013'904'223;
    bytes[i] = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

SimSegmentWriter::SimSegmentWriter(SimMediaWriters& world, std::shared_ptr<SimSegmentedMovie> recording,
                                   std::size_t number, SegmentWriterOptions options)
    : world_(world),
      recording_(std::move(recording)),
      number_(number),
      options_(std::move(options)),
      inputs_(content(), [this](const SimMovieTrack& track, const SampleBuffer& sample) { appended(track, sample); }),
      queue_(world.dispatch_.makeSerialQueue("segment-writer")) {}

SimSegmentWriter::~SimSegmentWriter() { *deliveriesLive_ = false; }

AssetWriterInput* SimSegmentWriter::addVideoInput(const VideoSettings& settings) {
  if (world_.refusesInputs_ || settings.allowFrameReordering) return nullptr;
  return inputs_.addVideo(settings);
}

AssetWriterInput* SimSegmentWriter::addAudioInput(const AudioSettings& settings) {
  return world_.refusesInputs_ ? nullptr : inputs_.addAudio(settings);
}

bool SimSegmentWriter::startWriting() {
  if (status() != Status::unknown) return false;
  if (auto refusal = world_.takeStartRefusal()) return fail(*std::move(refusal));
  if (inputs_.empty()) return fail(AssetWriterError::cannotEncode);
  if (recording_->movie) startMovie();
  content().status = Status::writing;
  return true;
}

void SimSegmentWriter::startMovie() {
  SimMovie& movie = *recording_->movie;
  for (const auto& track : content().tracks) {
    movie.tracks.push_back(std::make_unique<SimMovieTrack>());
    movie.tracks.back()->video = track->video;
    movie.tracks.back()->audio = track->audio;
  }
  if (auto begun = beginFile(world_.files_, movie); !begun) return world_.fail(movie, begun.error());
  movie.status = Status::writing;
}

void SimSegmentWriter::startSession(MediaTime sourceTime) {
  if (content().sessionStart) return;
  content().sessionStart = sourceTime;
  if (recording_->movie) recording_->movie->sessionStart = sourceTime;
}

void SimSegmentWriter::endSession(MediaTime sourceTime) {
  content().sessionEnd = sourceTime;
  if (recording_->movie) recording_->movie->sessionEnd = sourceTime;
}

void SimSegmentWriter::appended(const SimMovieTrack& track, const SampleBuffer& sample) {
  if (SimMovie* movie = writtenMovie()) {
    const auto same = std::ranges::find(content().tracks, &track, &std::unique_ptr<SimMovieTrack>::get);
    movie->tracks[static_cast<std::size_t>(same - content().tracks.begin())]->samples.push_back(sample);
  }
  const SimMovieTrack* pictures = content().pictures();
  if (&track != (pictures != nullptr ? pictures : content().sound(0))) return;
  if (nextIndex_ == 0) deliver(makeInitialization());
  emitUpTo(sample.presentationTime() - *content().sessionStart);
}

void SimSegmentWriter::emitUpTo(MediaTime time) {
  for (; time >= emitted_ + options_.segmentInterval; emitted_ = emitted_ + options_.segmentInterval) {
    deliver(makeMedia({emitted_, emitted_ + options_.segmentInterval}));
  }
}

Segment SimSegmentWriter::makeInitialization() {
  const std::size_t size = world_.segmentScript_.initializationSize;
  return {ByteChain(simSegmentContent(number_, nextIndex_++, size)), SegmentKind::initialization, std::nullopt};
}

Segment SimSegmentWriter::makeMedia(Span span) {
  const double share = (span.end - span.begin).seconds() / options_.segmentInterval.seconds();
  const auto size = static_cast<std::size_t>(share * static_cast<double>(world_.segmentScript_.mediaSize));
  return {ByteChain(simSegmentContent(number_, nextIndex_++, size)), SegmentKind::separable, report(span)};
}

SegmentReport SimSegmentWriter::report(Span span) const {
  SegmentReport report;
  for (const auto& track : content().tracks) {
    if (auto one = this->report(*track, span)) report.trackReports.push_back(*std::move(one));
  }
  return report;
}

std::optional<SegmentTrackReport> SimSegmentWriter::report(const SimMovieTrack& track, Span span) const {
  const MediaTime zero = *content().sessionStart;
  const auto timeOf = [&](const SampleBuffer& sample) { return sample.presentationTime() - zero; };
  const auto first = std::ranges::lower_bound(track.samples, span.begin, {}, timeOf);
  if (first == track.samples.end() || timeOf(*first) >= span.end) return std::nullopt;
  SegmentTrackReport report;
  report.earliestPresentationTime = timeOf(*first);
  report.duration = span.end - report.earliestPresentationTime;
  if (track.video) {
    report.mediaType = MediaType::video;
    report.firstVideoSamplePresentationTime = report.earliestPresentationTime;
  } else {
    report.mediaType = MediaType::audio;
  }
  return report;
}

void SimSegmentWriter::deliver(Segment segment) {
  queue_->async([live = deliveriesLive_, recording = recording_, &sink = options_.sink, segment]() mutable {
    if (!*live || recording->content.status == Status::failed) return;
    recording->segments.push_back(segment);
    sink(std::move(segment));
  });
}

Task<void> SimSegmentWriter::deliverLast() {
  using Last = SimSegmentScript::Last;
  const MediaTime end = content().duration();
  const Last last = world_.segmentScript_.last;
  if (nextIndex_ > 0 && end > emitted_ && last != Last::never) {
    Segment segment = makeMedia({std::exchange(emitted_, end), end});
    if (last == Last::inTime) {
      deliver(std::move(segment));
    } else {
      lateDelivery_ = queue_->after(world_.segmentScript_.lateBy,
                                    [this, segment = std::move(segment)]() mutable { deliver(std::move(segment)); });
    }
  }
  co_return co_await drained(*queue_);
}

Task<void> SimSegmentWriter::finishWriting() {
  inputs_.finishAll();
  if (status() == Status::writing) CO_TRY_VOID(co_await deliverLast());
  if (world_.finishingTime_ > Duration(0)) CO_TRY_VOID(co_await delay(world_.dispatch_.main(), world_.finishingTime_));
  finishMovie();
  if (status() == Status::failed) co_return *error();
  if (status() == Status::completed) co_return success;
  if (status() != Status::writing) co_return CommonError::cancelled;
  content().status = Status::completed;
  co_return success;
}

void SimSegmentWriter::finishMovie() {
  SimMovie* movie = writtenMovie();
  if (movie == nullptr) return;
  for (const auto& track : movie->tracks) track->isFinished = true;
  if (auto finished = finishFile(world_.files_, *movie); !finished) return world_.fail(*movie, finished.error());
  movie->status = Status::completed;
}

void SimSegmentWriter::cancelWriting() {
  if (status() != Status::writing) return;
  *deliveriesLive_ = false;
  content().status = Status::cancelled;
  SimMovie* movie = writtenMovie();
  if (movie == nullptr) return;
  (void)world_.files_.remove(movie->path);
  movie->status = Status::cancelled;
}

std::optional<Error> SimSegmentWriter::movieError() const {
  return recording_->movie ? recording_->movie->error : std::nullopt;
}

std::int64_t SimSegmentWriter::movieBytesWritten() const {
  const SimMovie* movie = recording_->movie.get();
  return movie != nullptr && !movie->error ? sizeOf(world_.files_, *movie) : 0;
}

SimMovie* SimSegmentWriter::writtenMovie() const {
  SimMovie* movie = recording_->movie.get();
  return movie != nullptr && movie->status == Status::writing ? movie : nullptr;
}

bool SimSegmentWriter::fail(Error error) {
  content().error = std::move(error);
  content().status = Status::failed;
  return false;
}

}  // namespace quillbeam
