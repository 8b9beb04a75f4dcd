#include "platform/linux/ffmpeg/DetachedOutput.h"

#include <utility>

#include "platform/media/AssetWriter.h"

namespace quillbeam {

DetachedOutput::DetachedOutput(std::unique_ptr<PacketOutput> output, Failures failures, std::int64_t largestBacklog)
    : failures_(failures), largestBacklog_(largestBacklog), output_(std::move(output)) {
  thread_.start("movie-file", [this] { return step(); });
}

void DetachedOutput::push(std::size_t track, EncodedPacket packet) {
  const std::int64_t bytes = packet.byteCount();
  hasNews_ = true;
  const auto order = [track, packet = std::move(packet)](PacketOutput& output) -> Result<Progress> {
    output.push(track, packet);
    return Progress::goesOn;
  };
  enqueue(order, bytes);
}

void DetachedOutput::endTrack(std::size_t track, std::optional<MediaTime> end) {
  hasNews_ = true;
  enqueue([track, end](PacketOutput& output) -> Result<Progress> {
    output.endTrack(track, end);
    return Progress::goesOn;
  });
}

void DetachedOutput::cutTrack(std::size_t track, MediaTime end) {
  enqueue([track, end](PacketOutput& output) -> Result<Progress> {
    output.cutTrack(track, end);
    return Progress::goesOn;
  });
}

Result<void> DetachedOutput::finish(std::optional<MediaTime> end) {
  enqueueLast([end](PacketOutput& output) -> Result<Progress> {
    TRY_VOID(output.write());
    TRY_VOID(output.finish(end));
    return Progress::ended;
  });
  return passOnFailure();
}

Result<bool> DetachedOutput::write() {
  TRY_VOID(passOnFailure());
  // Together with what came before it, as without a thread between: fragments are cut at the same places.
  if (std::exchange(hasNews_, false)) {
    enqueue([](PacketOutput& output) -> Result<Progress> {
      TRY_VOID(output.write());
      return Progress::goesOn;
    });
  }
  return false;
}

Result<void> DetachedOutput::passOnFailure() const {
  if (failures_ == Failures::kept) return success;
  if (auto failed = error()) return *std::move(failed);
  return success;
}

void DetachedOutput::salvage(std::optional<MediaTime> end) {
  enqueueLast([end](PacketOutput& output) -> Result<Progress> {
    output.salvage(end);
    return Progress::ended;
  });
}

void DetachedOutput::discard() {
  thread_.stop();
  output_->discard();
}

void DetachedOutput::enqueueLast(Order order) {
  enqueue(std::move(order));
  ended_.wait();
}

void DetachedOutput::enqueue(Order order, std::int64_t bytes) {
  {
    MutexLock lock(mutex_);
    if (!accepts_) return;
    backlog_ += bytes;
    orders_.push_back(std::move(order));
    if (backlog_ > largestBacklog_) {
      accepts_ = false;
      orders_.push_back([](PacketOutput&) -> Result<Progress> { return AssetWriterError::writeFailed; });
    }
  }
  thread_.signal().raise();
}

WorkerThread::Outcome DetachedOutput::step() {
  auto progress = work();
  if (!progress) {
    output_->salvage(std::nullopt);
    end(progress.error());
  } else if (*progress == Progress::ended) {
    end(std::nullopt);
  } else {
    return WorkerThread::Outcome::idle;
  }
  return WorkerThread::Outcome::finished;
}

Result<DetachedOutput::Progress> DetachedOutput::work() {
  std::deque<Order> orders;
  {
    MutexLock lock(mutex_);
    orders = std::exchange(orders_, {});
    backlog_ = 0;
  }
  for (const Order& order : orders) {
    TRY(const Progress progress, order(*output_));
    if (progress == Progress::ended) return progress;
  }
  return Progress::goesOn;
}

void DetachedOutput::end(std::optional<Error> error) {
  {
    MutexLock lock(mutex_);
    accepts_ = false;
    orders_.clear();
    error_ = std::move(error);
  }
  ended_.raise();
}

std::optional<Error> DetachedOutput::error() const {
  MutexLock lock(mutex_);
  return error_;
}

}  // namespace quillbeam
