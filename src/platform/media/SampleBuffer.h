#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "base/MediaTime.h"
#include "base/Result.h"
#include "platform/media/PixelBuffer.h"

namespace quillbeam {

/// What a screen frame carries beside its picture. Only complete frames carry a new picture.
enum class FrameStatus { complete, idle, blank, suspended, started, stopped };

/// Linear PCM, 32-bit float, interleaved: samples.size() == frames × channels; full scale is ±1.
struct AudioBlock {
  int sampleRate = 48'000;
  int channels = 2;
  std::vector<float> samples;

  int frames() const { return channels == 0 ? 0 : static_cast<int>(samples.size()) / channels; }
};

struct SampleTiming {
  MediaTime duration;
  MediaTime presentationTime;
  MediaTime decodeTime;  ///< invalid for captured samples
};

/// One captured or mixed sample: a picture or a block of sound, with its time. A value; content is shared and
/// immutable, so copies are cheap and may be used on several queues.
class SampleBuffer {
 public:
  SampleBuffer() = default;  ///< an invalid sample

  static SampleBuffer video(std::shared_ptr<const PixelBuffer> picture, SampleTiming timing,
                            std::optional<FrameStatus> status);
  /// The duration follows from the block: frames / sampleRate.
  static SampleBuffer audio(std::shared_ptr<const AudioBlock> block, MediaTime presentationTime);

  bool isValid() const { return (picture_ || block_ || status_) && timing_.presentationTime.isValid(); }
  const SampleTiming& timing() const { return timing_; }
  MediaTime presentationTime() const { return timing_.presentationTime; }
  MediaTime duration() const { return timing_.duration; }
  /// Absent for audio, and for video that carries no attachments.
  std::optional<FrameStatus> frameStatus() const { return status_; }
  const std::shared_ptr<const PixelBuffer>& picture() const { return picture_; }
  const std::shared_ptr<const AudioBlock>& block() const { return block_; }

  /// The same content at another time. Fails (`SampleBufferError::noContent`) for a sample without content or an
  /// invalid presentation time.
  Result<SampleBuffer> copyWithNewTiming(SampleTiming timing) const;

 private:
  SampleTiming timing_;
  std::optional<FrameStatus> status_;
  std::shared_ptr<const PixelBuffer> picture_;
  std::shared_ptr<const AudioBlock> block_;
};

enum class SampleBufferError { noContent };
std::string describe(SampleBufferError error);
constexpr std::string_view errorDomain(SampleBufferError) { return "SampleBufferError"; }

}  // namespace quillbeam
