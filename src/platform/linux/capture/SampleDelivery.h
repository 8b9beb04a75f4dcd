#pragma once

#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "platform/capture/ScreenCapture.h"

namespace quillbeam {

/// Takes merged samples to the outputs, each on its queue. Outputs are added on the main queue before capture starts;
/// after that one capture thread delivers. What was posted owns what it needs, so it may outlast this object; `close`
/// makes it harmless.
class SampleDelivery {
 public:
  explicit SampleDelivery(int queueDepth);
  ~SampleDelivery();
  SampleDelivery(const SampleDelivery&) = delete;
  SampleDelivery& operator=(const SampleDelivery&) = delete;

  /// `ScreenCaptureError::duplicateOutput`.
  Result<void> addOutput(StreamOutput& output, OutputType type, DispatchQueue& queue);
  bool hasOutput(OutputType type) const;
  std::vector<DispatchQueue*> queues() const;

  /// A capture starts; no picture of it was taken yet.
  void captureStarts();

  enum class Outcome { posted, refused };
  enum class Urgency { ordinary, last };  ///< the last samples go however many wait
  /// Refused, and counted as dropped, when as many samples of its type wait as may.
  Outcome deliver(OutputType type, SampleBuffer sample, Urgency urgency = Urgency::ordinary);
  bool hasRoomForPicture() const;
  void countDropped(std::int64_t pictures);

  /// Whether an output has used a picture. Any thread.
  bool pictureWasTaken() const;
  StreamStatistics statistics() const;  ///< any thread

  /// Calls `done`, on some output's queue, when everything delivered so far has run.
  void whenDelivered(std::function<void()> done);
  /// Returns when no output is running or will run. Not from an output of another queue.
  void close();

 private:
  struct Counters;
  struct Lane;
  static void run(Lane& lane, Counters& counters, const SampleBuffer& sample, OutputType type);

  int queueDepth_;
  std::shared_ptr<Counters> counters_;
  std::array<std::shared_ptr<Lane>, 3> lanes_;  // by OutputType; null without an output
};

}  // namespace quillbeam
