#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "platform/linux/ffmpeg/FragmentMuxer.h"
#include "platform/linux/ffmpeg/Interleaver.h"
#include "platform/linux/ffmpeg/PacketOutput.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// Cuts the packets into segments and hands them over.
class SegmentOutput final : public PacketOutput {
 public:
  /// `AssetWriterError::cannotEncode` for tracks that the file format does not take. `bytesWritten` is kept current for
  /// other threads. `sink` is called inside `write`, `finish` and `salvage`.
  static Result<std::unique_ptr<SegmentOutput>> create(std::vector<TrackFormat> tracks, MediaTime interval,
                                                       SegmentSink sink, std::atomic<std::int64_t>& bytesWritten);

  void push(std::size_t track, EncodedPacket packet) override { interleaver_.push(track, std::move(packet)); }
  void endTrack(std::size_t track, std::optional<MediaTime> end) override;
  void cutTrack(std::size_t track, MediaTime end) override { interleaver_.cutTrack(track, end); }
  Result<bool> write() override;
  Result<void> finish(std::optional<MediaTime>) override { return success; }
  /// What has been encoded is delivered.
  void salvage(std::optional<MediaTime> end) override;
  void discard() override {}

 private:
  SegmentOutput(std::vector<TrackFormat> tracks, MediaTime interval, SegmentSink sink,
                std::unique_ptr<FragmentMuxer> muxer, std::atomic<std::int64_t>& bytesWritten);
  Result<bool> writeInitialization();
  SegmentReport report(const std::vector<Interleaver::TrackPacket>& packets) const;
  void deliver(Segment segment);

  const std::vector<TrackFormat> tracks_;
  const SegmentSink sink_;
  std::unique_ptr<FragmentMuxer> muxer_;
  Interleaver interleaver_;
  std::atomic<std::int64_t>& bytesWritten_;
  bool initialized_ = false;
};

}  // namespace quillbeam
