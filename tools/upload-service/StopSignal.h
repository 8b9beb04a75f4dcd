#pragma once

#include <chrono>

namespace quillbeam::service {

/// Tells every thread that waits for something that the service ends.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void raise();

  enum class Event { readable, stopped, timedOut };
  /// Until `socket` can be read (or was closed by its peer), the signal, or the time.
  Event awaitReadable(int socket, std::chrono::milliseconds longest) const;
  /// Until the signal or the time.
  Event sleep(std::chrono::milliseconds time) const { return awaitReadable(-1, time); }

 private:
  int event_;
};

}  // namespace quillbeam::service
