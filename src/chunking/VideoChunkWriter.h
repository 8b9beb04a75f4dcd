#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
#include "base/Weakly.h"
#include "chunking/SegmentStream.h"
#include "chunking/VideoAudioIntake.h"
#include "platform/Platform.h"
#include "platform/RepeatingTimer.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// A screen recording that is uploaded while it runs: the pictures and one mixed mono track of sound as fragmented MP4
/// in segments of 10 s (`SegmentStream` backs them up and sends them), and the same content as an ordinary MP4 file,
/// the local backup, from the same encoders. The first picture is the zero of both.
///
///     created ──first picture──► writing ──finishRecording──► done
///
/// `append…` come from any queue, each kind from one at a time, and only enqueue; pictures are handled on the writer's
/// queue, sound on the mixer's, segments and parts on main. Made, finished and destroyed on main.
class VideoChunkWriter : public WeaklyHeld {
 public:
  struct Options {
    SegmentStream::Recording recording;  ///< `localFile` is the local backup's place
    int width = 0;
    int height = 0;
    AudioSources sources;
  };

  VideoChunkWriter(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                   Options options);
  ~VideoChunkWriter();

  void setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate);
  void setObserver(VideoChunkWriterDelegate* observer) { stream_.setObserver(observer); }

  void appendVideo(SampleBuffer sample);
  void appendAudio(SampleBuffer sample) { sound_.append(std::move(sample), AudioSource::system); }
  void appendMicrophoneAudio(SampleBuffer sample) { sound_.append(std::move(sample), AudioSource::mic); }

  /// Everything appended is in segments and in the local backup, and the upload has been completed by the service, or
  /// the error of the upload's last steps.
  Task<void> finishRecording();
  /// For the end of the process: finishes the local backup and the segments on disk; nothing waits for the service.
  Task<void> finishWithoutUpload();

 private:
  class Pictures;

  enum class Written { nothing, segments };

  void begin();
  Task<Written> finishWriting();
  void logLocalFile(const SegmentWriter& writer) const;
  void logStatistics() const;

  Platform& platform_;
  const Logger logger_;
  const std::optional<Path> localFile_;
  // In this order: what is declared later uses what stands before it until it is gone.
  SegmentStream stream_;
  std::unique_ptr<Pictures> pictures_;
  VideoAudioIntake sound_;
  std::unique_ptr<DispatchQueue> writerQueue_;
  std::unique_ptr<RepeatingTimer> statisticsTimer_;
};

}  // namespace quillbeam
