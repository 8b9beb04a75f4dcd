#pragma once

#include <memory>

#include "platform/sim/SimAssetWriterInput.h"

namespace quillbeam {

/// The writer of a simulated recording in segments; its state is the recording's. One thread.
class SimSegmentWriter final : public SegmentWriter {
 public:
  SimSegmentWriter(SimMediaWriters& world, std::shared_ptr<SimSegmentedMovie> recording, std::size_t number,
                   SegmentWriterOptions options);
  ~SimSegmentWriter() override;

  AssetWriterInput* addVideoInput(const VideoSettings& settings) override;
  AssetWriterInput* addAudioInput(const AudioSettings& settings) override;
  bool startWriting() override;
  void startSession(MediaTime sourceTime) override;
  void endSession(MediaTime sourceTime) override;
  Task<void> finishWriting() override;
  void cancelWriting() override;
  Status status() const override { return content().status; }
  std::optional<Error> error() const override { return content().error; }
  std::int64_t bytesWritten() const override { return recording_->bytesDelivered(); }
  std::optional<Error> movieError() const override;
  std::int64_t movieBytesWritten() const override;

 private:
  /// A piece of the timeline.
  struct Span {
    MediaTime begin;
    MediaTime end;
  };

  SimMovie& content() const { return recording_->content; }
  SimMovie* writtenMovie() const;
  bool fail(Error error);
  void startMovie();
  void finishMovie();
  void appended(const SimMovieTrack& track, const SampleBuffer& sample);
  void emitUpTo(MediaTime time);
  Segment makeInitialization();
  Segment makeMedia(Span span);
  SegmentReport report(Span span) const;
  std::optional<SegmentTrackReport> report(const SimMovieTrack& track, Span span) const;
  void deliver(Segment segment);
  Task<void> deliverLast();

  SimMediaWriters& world_;
  const std::shared_ptr<SimSegmentedMovie> recording_;
  const std::size_t number_;
  const SegmentWriterOptions options_;
  SimAssetWriterInputs inputs_;
  MediaTime emitted_ = MediaTime::zero();  ///< how much of the timeline is in segments
  std::size_t nextIndex_ = 0;
  std::shared_ptr<bool> deliveriesLive_ = std::make_shared<bool>(true);
  std::unique_ptr<DispatchQueue> queue_;  ///< stands for the real writer's thread
  TimerHandle lateDelivery_;
};

}  // namespace quillbeam
