#pragma once

#include <memory>

#include "base/Task.h"
#include "base/Weakly.h"
#include "chunking/AudioMixer.h"
#include "chunking/SegmentStream.h"
#include "platform/Platform.h"

namespace quillbeam {

/// An audio recording that is uploaded while it runs: both sources mixed into one mono track, as fragmented MP4 in
/// segments of 5 s (`SegmentStream` backs them up and sends them). The first buffer of either source is the zero.
///
/// `append…` come from any queue, each kind from one at a time, and only enqueue; the mixer's queue makes the writer
/// and feeds it, segments and parts are handled on main. Made, finished and destroyed on main.
class AudioChunkWriter : public WeaklyHeld {
 public:
  struct Options {
    SegmentStream::Recording recording;  ///< type, content type and local file (none) are the writer's to set
    AudioSources sources;
  };

  AudioChunkWriter(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                   Options options);
  ~AudioChunkWriter();

  void setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate);

  void appendAudio(SampleBuffer sample);
  void appendMicrophoneAudio(SampleBuffer sample);

  /// Everything appended is in segments and the upload has been completed by the service, or the error of the final
  /// part or of the completion.
  Task<void> finishRecording();
  /// For the end of the process: finishes the segments on disk; nothing waits for the service.
  Task<void> finishWithoutUpload();

 private:
  class Sound;

  void append(SampleBuffer sample, AudioSource source);
  Task<void> finishWriting();

  Platform& platform_;
  const Logger logger_;
  // In this order: what is declared later uses what stands before it until it is gone.
  SegmentStream stream_;
  std::unique_ptr<Sound> sound_;
  std::unique_ptr<DispatchQueue> mixerQueue_;
};

}  // namespace quillbeam
