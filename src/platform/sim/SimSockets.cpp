#include "platform/sim/SimSockets.h"

#include <utility>

#include "platform/sim/SimStream.h"

namespace quillbeam {

namespace {

constexpr std::size_t longestPath = 107;

class SimConnection final : public LocalConnection {
 public:
  SimConnection(std::shared_ptr<SimStream> stream, SimSide side, DispatchQueue& queue)
      : stream(std::move(stream)), side(side), queue_(queue) {}
  ~SimConnection() override {
    queue_.assertCurrent();
    stream->abandon(side);
  }

  void start(std::function<void(ByteSpan)> received, std::function<void()> closed) override {
    queue_.assertCurrent();
    stream->start(side, std::move(received), std::move(closed));
  }
  void send(ByteChain bytes) override { stream->send(side, std::move(bytes)); }
  std::size_t unsentBytes() const override { return stream->unsentBytes(side); }
  void closeAfterSending(Duration deadline) override {
    queue_.assertCurrent();
    stream->closeAfterSending(side, deadline);
  }

  const std::shared_ptr<SimStream> stream;
  const SimSide side;

 private:
  DispatchQueue& queue_;
};

SimConnection& simulated(LocalConnection& end) { return static_cast<SimConnection&>(end); }

}  // namespace

class SimSockets::Listener final : public LocalListener {
 public:
  struct Receiver {
    Accepted accepted;
    bool alive = true;
  };

  Listener(SimSockets& sockets, Path path, DispatchQueue& queue, Accepted accepted)
      : queue(queue),
        receiver(std::make_shared<Receiver>(Receiver{.accepted = std::move(accepted)})),
        sockets_(sockets),
        path_(std::move(path)) {
    sockets_.listeners_[path_] = this;
  }
  ~Listener() override {
    receiver->alive = false;
    sockets_.listeners_.erase(path_);
  }

  DispatchQueue& queue;
  const std::shared_ptr<Receiver> receiver;

 private:
  SimSockets& sockets_;
  Path path_;
};

SimSockets::SimSockets(std::uint64_t seed)
    : rules_(std::make_shared<SimStreamRules>(SimStreamRules{.random = SimRandomSource(seed)})) {}

SimSockets::~SimSockets() = default;

Result<std::unique_ptr<LocalListener>> SimSockets::listen(const Path& path, DispatchQueue& queue, Accepted accepted) {
  if (path.size() > longestPath) return LocalSocketError::pathTooLong;
  if (listeners_.contains(path)) return LocalSocketError::inUse;
  return std::make_unique<Listener>(*this, path, queue, std::move(accepted));
}

Result<std::unique_ptr<LocalConnection>> SimSockets::connect(const Path& path, DispatchQueue& queue) {
  if (path.size() > longestPath) return LocalSocketError::pathTooLong;
  const auto found = listeners_.find(path);
  if (found == listeners_.end()) return LocalSocketError::notListening;
  if (foreignPeers_) return LocalSocketError::foreignPeer;
  Listener& listener = *found->second;
  auto stream = std::make_shared<SimStream>(rules_, queue, listener.queue);
  listener.queue.async([stream, receiver = listener.receiver, queue = &listener.queue] {
    auto accepted = std::make_unique<SimConnection>(stream, SimSide::accepting, *queue);
    if (receiver->alive) receiver->accepted(std::move(accepted));
  });
  return std::make_unique<SimConnection>(std::move(stream), SimSide::connecting, queue);
}

void SimSockets::setLatency(Duration latency) { rules_->latency = latency; }
void SimSockets::setCapacity(std::size_t bytes) { rules_->capacity = bytes; }

void SimSockets::stallReading(LocalConnection& end) {
  simulated(end).stream->setReading(simulated(end).side, SimReading::stalled);
}
void SimSockets::resumeReading(LocalConnection& end) {
  simulated(end).stream->setReading(simulated(end).side, SimReading::flowing);
}
void SimSockets::disconnect(LocalConnection& end) { simulated(end).stream->breakDown(); }

}  // namespace quillbeam
