#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/linux/capture/SoundSource.h"

namespace quillbeam {

/// One sound of a running capture: contiguous blocks from its start on, whatever happens. While its source cannot be
/// opened (no sound server answers) the blocks are timed silence, and opening is tried again every few seconds: a
/// missing sound must not prevent a recording of the screen. Confined to the capture thread.
class SoundTrack {
 public:
  /// `type` is `audio` (what the computer plays) or `microphone`.
  SoundTrack(OutputType type, SoundSources& sources, SystemLog& log);

  OutputType type() const { return type_; }
  /// Opens the source; the first block starts at `from`.
  void start(MediaTime from);
  /// Every block not yet read that ends at or before `hostTime`.
  std::vector<SampleBuffer> readUntil(MediaTime hostTime);

 private:
  std::string_view name() const;
  void open(MediaTime now);
  std::vector<SampleBuffer> silenceUntil(MediaTime hostTime);

  OutputType type_;
  SoundSources& sources_;
  Logger log_;
  std::unique_ptr<SoundSource> source_;  // null while silence stands in for it
  MediaTime next_;                       // where the next block starts
  MediaTime silentFrom_;
  std::int64_t silentFrames_ = 0;  // since then
  MediaTime retryAt_;
  bool complained_ = false;
};

}  // namespace quillbeam
