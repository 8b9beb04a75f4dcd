#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "base/Mutex.h"
#include "platform/linux/ffmpeg/PacketOutput.h"
#include "platform/linux/ffmpeg/WorkerThread.h"

namespace quillbeam {

/// An output on a thread of its own, whose disk may stall without the encoders noticing: it takes everything.
class DetachedOutput final : public PacketOutput {
 public:
  /// Minutes of a stalled disk. Beyond that the output fails, which costs its file the end but nobody any memory.
  static constexpr std::int64_t usualBacklog = 64 * 1024 * 1024;

  /// What a failure means to the owner: nothing (siblings go on, `error` tells whoever asks), or its own failure, with
  /// the next `write` or `finish`.
  enum class Failures { kept, passedOn };

  DetachedOutput(std::unique_ptr<PacketOutput> output, Failures failures, std::int64_t largestBacklog = usualBacklog);
  ~DetachedOutput() override { thread_.stop(); }

  void push(std::size_t track, EncodedPacket packet) override;
  void endTrack(std::size_t track, std::optional<MediaTime> end) override;
  void cutTrack(std::size_t track, MediaTime end) override;
  Result<bool> write() override;
  /// Waits for the output to be finished.
  Result<void> finish(std::optional<MediaTime> end) override;
  void salvage(std::optional<MediaTime> end) override;
  void discard() override;

  std::optional<Error> error() const;  ///< any thread

 private:
  /// What the owner asked for, carried out on the thread. `ended` when nothing comes after it.
  enum class Progress { goesOn, ended };
  using Order = std::function<Result<Progress>(PacketOutput& output)>;

  void enqueue(Order order, std::int64_t bytes = 0);
  void enqueueLast(Order order);
  WorkerThread::Outcome step();
  Result<Progress> work();
  void end(std::optional<Error> error);
  Result<void> passOnFailure() const;

  const Failures failures_;
  const std::int64_t largestBacklog_;
  bool hasNews_ = false;                  ///< since the last `write`; the owner's
  std::unique_ptr<PacketOutput> output_;  ///< the thread's
  WorkSignal ended_;

  mutable Mutex mutex_;
  std::deque<Order> orders_ GUARDED_BY(mutex_);
  std::int64_t backlog_ GUARDED_BY(mutex_) = 0;  ///< bytes of the packets in `orders_`
  bool accepts_ GUARDED_BY(mutex_) = true;
  std::optional<Error> error_ GUARDED_BY(mutex_);

  WorkerThread thread_;
};

}  // namespace quillbeam
