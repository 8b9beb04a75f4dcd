#pragma once

#include <array>
#include <functional>
#include <memory>

#include "platform/LocalSocket.h"
#include "platform/sim/SimRandomSource.h"

namespace quillbeam {

struct SimStreamRules {
  Duration latency = Duration::zero();
  std::size_t capacity = 208 * 1024;
  SimRandomSource random{1};
};

enum class SimSide { connecting, accepting };
enum class SimReading { flowing, stalled };

/// Both directions of one simulated connection. Belongs to its two ends and to what is scheduled for them.
class SimStream : public std::enable_shared_from_this<SimStream> {
 public:
  SimStream(std::shared_ptr<SimStreamRules> rules, DispatchQueue& connecting, DispatchQueue& accepting);

  void start(SimSide side, std::function<void(ByteSpan)> received, std::function<void()> closed);
  void send(SimSide side, ByteChain bytes);
  std::size_t unsentBytes(SimSide side) const { return end(side).unsent.size(); }
  void closeAfterSending(SimSide side, Duration deadline);
  /// The owner is going: closes at once, no callback follows.
  void abandon(SimSide side);

  void setReading(SimSide side, SimReading reading);
  void breakDown();

 private:
  struct End {
    DispatchQueue* queue;
    std::function<void(ByteSpan)> received;
    std::function<void()> closed;
    ByteChain unsent;    // not yet taken by the system
    ByteChain incoming;  // taken by the system, not yet read here
    bool started = false;
    SimReading reading = SimReading::flowing;
    bool closing = false;      // closes once `unsent` is empty
    bool open = true;          // false: nothing goes out or comes in any more
    bool abandoned = false;    // no callback any more
    bool deliveryDue = false;  // a cut is on its way
    TimerHandle delivery;
    TimerHandle deadline;
  };

  End& end(SimSide side) { return ends_[side == SimSide::accepting]; }
  const End& end(SimSide side) const { return ends_[side == SimSide::accepting]; }
  static SimSide other(SimSide side) { return side == SimSide::connecting ? SimSide::accepting : SimSide::connecting; }
  void pump(SimSide sender);
  void arrange(SimSide reader);
  void deliver(SimSide reader);
  void close(SimSide side);

  std::shared_ptr<SimStreamRules> rules_;
  std::array<End, 2> ends_;
};

}  // namespace quillbeam
