#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
#include "chunking/AudioMixer.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// The sound of a screen recording, placed on the mix's timeline, whose frame 0 is the baseline: the first picture.
/// Sound that comes before the baseline is known waits (at most 500 buffers); a source that began clearly before it is
/// shifted as a whole. Each source's queue holds at most 1000 chunks; beyond that the oldest go.
///
/// A queue of its own does all the work; `append` and `begin` only enqueue there and come from any queue.
class VideoAudioIntake {
 public:
  VideoAudioIntake(Dispatch& dispatch, const Logger& logger, AudioSources sources);

  void append(SampleBuffer sample, AudioSource source);
  /// The baseline is known and `output` (which outlives this object's work) takes the mix.
  void begin(MediaTime baseline, AssetWriterInput& output);
  /// Mixes everything that is left, but for a remainder shorter than a block, and forgets what came before the
  /// baseline. Resumes when that is done; nothing is mixed afterwards.
  Task<void> finish();

  struct Backlog {
    std::size_t system = 0;
    std::size_t mic = 0;
    std::size_t pending = 0;
  };
  /// Any queue.
  Backlog backlog() const;

 private:
  struct Lead {
    std::int64_t frames = 0;
    bool isResolved = false;
  };
  struct Pending {
    SampleBuffer sample;
    AudioSource source;
  };

  void enqueue(SampleBuffer sample, AudioSource source);
  void keepForLater(SampleBuffer sample, AudioSource source);
  void flushPending();
  void process(const SampleBuffer& sample, AudioSource source);
  std::int64_t resolvedLead(AudioSource source, MediaTime presentationTime);
  void limit(AudioSource source);
  void warnOfOverflow(const std::string& text);
  void publishBacklog();

  const Logger& logger_;
  std::deque<Pending> pending_ CONFINED_TO(*mixerQueue_);
  std::optional<MediaTime> baseline_ CONFINED_TO(*mixerQueue_);
  AssetWriterInput* output_ CONFINED_TO(*mixerQueue_) = nullptr;
  Lead systemLead_ CONFINED_TO(*mixerQueue_);
  Lead micLead_ CONFINED_TO(*mixerQueue_);
  bool hasQueuedFirst_ CONFINED_TO(*mixerQueue_) = false;
  bool queueOverflowWarningLogged_ CONFINED_TO(*mixerQueue_) = false;
  bool isFinished_ CONFINED_TO(*mixerQueue_) = false;
  std::atomic<std::size_t> systemBacklog_ = 0;
  std::atomic<std::size_t> micBacklog_ = 0;
  std::atomic<std::size_t> pendingBacklog_ = 0;
  std::unique_ptr<AudioMixer> mixer_;
  std::unique_ptr<DispatchQueue> mixerQueue_;  // last: it runs what waits on it before the state goes
};

}  // namespace quillbeam
