#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Platform.h"
#include "recording/AVCaptureMicrophoneManager.h"

namespace quillbeam {

/// A recording's microphone on systems whose screen stream has none. Main queue.
class MicrophoneFallback {
 public:
  static bool isNeeded(const Platform& platform) { return platform.systemVersion < streamCapturesMicrophone; }

  /// `speaker` begins what the recording says in the log: "", or "AudioSessionRecorder: ". Samples arrive on a queue of
  /// their own. `AVCaptureMicError`s.
  static Result<std::unique_ptr<MicrophoneFallback>> start(Platform& platform, std::string_view speaker,
                                                           std::function<void(const SampleBuffer&)> onSampleBuffer);
  void stop();

 private:
  MicrophoneFallback(Platform& platform, std::string_view speaker,
                     std::function<void(const SampleBuffer&)> onSampleBuffer);
  void print(std::string_view mark, std::string_view text) const;

  StandardOutput& out_;
  const std::string speaker_;
  AVCaptureMicrophoneManager manager_;
};

}  // namespace quillbeam
