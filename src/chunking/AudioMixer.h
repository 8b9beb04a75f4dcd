#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string_view>

#include "base/Task.h"
#include "chunking/MixQueue.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

enum class AudioSource { system, mic };
std::string_view toText(AudioSource source);

/// Which sources will deliver. One that is switched off is not waited for.
struct AudioSources {
  bool system = true;
  bool mic = true;
  bool any() const { return system || mic; }
};

/// Mixes system sound and microphone into one mono track of 48 kHz on a timeline whose frame 0 is the baseline, in
/// blocks of 1024 frames, held back 0.1 s behind the shorter source so that late buffers still land in their block.
/// Sound that comes before the baseline is known waits (at most 500 buffers); each source's queue holds at most 1000
/// chunks; beyond that the oldest go. Positions are whole frames from exact times.
///
/// A queue of its own does all the work; `append` and `begin` only enqueue there and come from any queue.
class AudioMixer {
 public:
  AudioMixer(Dispatch& dispatch, const Logger& logger, std::string_view queueLabel, AudioSources sources);

  void append(SampleBuffer sample, AudioSource source);
  /// The baseline is known and `output` (which outlives the mixer's work) takes the mix.
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
  static constexpr int mixBlockSize = 1024;
  struct Source {
    MixQueue queue;
    std::int64_t leadFrames = 0;
    bool leadResolved = false;
    bool delivers = true;
  };
  struct Pending {
    SampleBuffer sample;
    AudioSource source;
  };

  void enqueue(SampleBuffer sample, AudioSource source);
  void keepForLater(SampleBuffer sample, AudioSource source);
  void flushPending();
  void process(const SampleBuffer& sample, AudioSource source);
  void resolveLead(Source& state, AudioSource source, MediaTime presentationTime);
  void limit(Source& state, AudioSource source);
  void warnOfOverflow(const std::string& text);
  void drain();
  void mixUpTo(std::int64_t endFrame);
  void mixBlock();
  void publishBacklog();
  Source& state(AudioSource source);

  const Logger& logger_;
  Source system_ CONFINED_TO(*mixerQueue_);
  Source mic_ CONFINED_TO(*mixerQueue_);
  std::deque<Pending> pending_ CONFINED_TO(*mixerQueue_);
  std::optional<MediaTime> baseline_ CONFINED_TO(*mixerQueue_);
  AssetWriterInput* output_ CONFINED_TO(*mixerQueue_) = nullptr;
  std::int64_t currentMixFrame_ CONFINED_TO(*mixerQueue_) = 0;
  bool hasQueuedFirst_ CONFINED_TO(*mixerQueue_) = false;
  bool queueOverflowWarningLogged_ CONFINED_TO(*mixerQueue_) = false;
  bool isFinished_ CONFINED_TO(*mixerQueue_) = false;
  std::atomic<std::size_t> systemBacklog_ = 0;
  std::atomic<std::size_t> micBacklog_ = 0;
  std::atomic<std::size_t> pendingBacklog_ = 0;
  std::unique_ptr<DispatchQueue> mixerQueue_;  // last: it runs what waits on it before the state goes
};

}  // namespace quillbeam
