#include "platform/media/SampleBuffer.h"

#include <utility>

namespace quillbeam {

SampleBuffer SampleBuffer::video(std::shared_ptr<const PixelBuffer> picture, SampleTiming timing,
                                 std::optional<FrameStatus> status) {
  SampleBuffer sample;
  sample.picture_ = std::move(picture);
  sample.timing_ = timing;
  sample.status_ = status;
  return sample;
}

SampleBuffer SampleBuffer::audio(std::shared_ptr<const AudioBlock> block, MediaTime presentationTime) {
  SampleBuffer sample;
  sample.timing_ = {MediaTime(block->frames(), block->sampleRate), presentationTime, MediaTime::invalid()};
  sample.block_ = std::move(block);
  return sample;
}

Result<SampleBuffer> SampleBuffer::copyWithNewTiming(SampleTiming timing) const {
  if ((!picture_ && !block_) || !timing.presentationTime.isValid()) return SampleBufferError::noContent;
  SampleBuffer copy = *this;
  copy.timing_ = timing;
  return copy;
}

std::string describe(SampleBufferError error) {
  switch (error) {
    case SampleBufferError::noContent:
      return "The sample carries no picture and no sound, or no time";
  }
  std::unreachable();
}

}  // namespace quillbeam
