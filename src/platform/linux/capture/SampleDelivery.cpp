#include "platform/linux/capture/SampleDelivery.h"

#include <atomic>
#include <utility>

namespace quillbeam {

namespace {

// A minute of sound, 23 MB: an output that stalls for longer has lost more than these.
constexpr int longestSoundQueue = 6000;

}  // namespace

struct SampleDelivery::Counters {
  std::atomic<bool> closed = false;
  std::atomic<bool> taken = false;
  std::atomic<std::int64_t> delivered = 0;
  std::atomic<std::int64_t> dropped = 0;
};

struct SampleDelivery::Lane {
  StreamOutput& output;
  DispatchQueue& queue;
  std::atomic<int> waiting = 0;  ///< posted, and the output has not returned
};

SampleDelivery::SampleDelivery(int queueDepth) : queueDepth_(queueDepth), counters_(std::make_shared<Counters>()) {}

SampleDelivery::~SampleDelivery() { close(); }

Result<void> SampleDelivery::addOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) {
  auto& lane = lanes_[static_cast<std::size_t>(type)];
  if (lane) return ScreenCaptureError::duplicateOutput;
  lane = std::shared_ptr<Lane>(new Lane{output, queue});
  return success;
}

bool SampleDelivery::hasOutput(OutputType type) const { return lanes_[static_cast<std::size_t>(type)] != nullptr; }

std::vector<DispatchQueue*> SampleDelivery::queues() const {
  std::vector<DispatchQueue*> queues;
  for (const auto& lane : lanes_) {
    if (lane) queues.push_back(&lane->queue);
  }
  return queues;
}

void SampleDelivery::captureStarts() { counters_->taken = false; }

SampleDelivery::Outcome SampleDelivery::deliver(OutputType type, SampleBuffer sample, Urgency urgency) {
  const auto& lane = lanes_[static_cast<std::size_t>(type)];
  if (!lane) return Outcome::posted;
  const bool isPicture = type == OutputType::screen;
  const int depth = isPicture ? queueDepth_ : longestSoundQueue;
  if (urgency == Urgency::ordinary && lane->waiting >= depth) {
    if (isPicture) ++counters_->dropped;
    return Outcome::refused;
  }
  if (isPicture) ++counters_->delivered;
  ++lane->waiting;
  lane->queue.async([lane, counters = counters_, sample = std::move(sample), type]() mutable {
    run(*lane, *counters, std::exchange(sample, {}), type);
  });
  return Outcome::posted;
}

void SampleDelivery::run(Lane& lane, Counters& counters, const SampleBuffer& sample, OutputType type) {
  if (!counters.closed) {
    const auto answer = lane.output.didOutputSampleBuffer(sample, type);
    if (type == OutputType::screen && answer == SampleDisposition::taken) counters.taken = true;
  }
  --lane.waiting;
}

bool SampleDelivery::hasRoomForPicture() const {
  const auto& lane = lanes_[static_cast<std::size_t>(OutputType::screen)];
  return !lane || lane->waiting < queueDepth_;
}

void SampleDelivery::countDropped(std::int64_t pictures) { counters_->dropped += pictures; }

bool SampleDelivery::pictureWasTaken() const { return counters_->taken; }

StreamStatistics SampleDelivery::statistics() const { return {counters_->delivered, counters_->dropped}; }

void SampleDelivery::whenDelivered(std::function<void()> done) {
  const auto all = queues();
  if (all.empty()) return done();
  auto remaining = std::make_shared<std::atomic<std::size_t>>(all.size());
  for (auto* queue : all) {
    queue->async([remaining, done] {
      if (--*remaining == 0) done();
    });
  }
}

void SampleDelivery::close() {
  counters_->closed = true;
  for (auto* queue : queues()) {
    // On its own queue nothing else is running, and what is still to run will see that it is closed.
    if (!queue->isCurrent()) queue->sync([] {});
  }
}

}  // namespace quillbeam
