#pragma once

#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/subscribe.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/linux/pulse/PulseLoop.h"

namespace quillbeam {

/// A source of the sound server that can be recorded.
struct PulseDevice {
  std::string source;       ///< the server's name for it
  std::string description;  ///< as the user knows it
  int sampleRate = 48'000;
  friend bool operator==(const PulseDevice&, const PulseDevice&) = default;
};

/// What "the system's sound" and "the microphone" stand for at the moment.
struct PulseDefaults {
  std::optional<PulseDevice> systemAudio;  ///< the monitor of the default sink
  std::optional<PulseDevice> microphone;   ///< the default source, unless it is a sink's monitor
};

/// Told under the loop's lock whenever the server came, went, or its devices were looked at anew.
class PulseObserver {
 public:
  virtual ~PulseObserver() = default;
  virtual void serverDidChange() = 0;
};

/// The process's one connection to the sound server. Connects by itself, again and again with growing pauses (a quarter
/// of a second up to four) while there is no server, and follows which devices are the defaults.
class PulseContext {
 public:
  /// `server` as PULSE_SERVER takes it; empty for the user's own.
  explicit PulseContext(std::string server = {});
  /// Observers and streams are gone by then.
  ~PulseContext();
  PulseContext(const PulseContext&) = delete;
  PulseContext& operator=(const PulseContext&) = delete;

  /// Whether a sound server answers; tries anew when the last attempt failed. Any thread but the loop's; returns once
  /// that is known, at the latest after `patience`.
  bool answers(Duration patience);
  /// Any thread. Nothing is set while no server answers.
  PulseDefaults defaults() const;

  PulseLoop& loop() QB_ANNOTATION(lock_returned(loop_)) { return loop_; }
  /// nullptr while not connected.
  pa_context* connection() const REQUIRES_LOCK(loop_);
  void addObserver(PulseObserver& observer) REQUIRES_LOCK(loop_);
  void removeObserver(PulseObserver& observer) REQUIRES_LOCK(loop_);
  /// Looks at the devices again in half a second and tells the observers.
  void refreshLater() REQUIRES_LOCK(loop_);

 private:
  enum class State { connecting, ready, unavailable };
  using Microseconds = pa_usec_t;

  void connect() REQUIRES_LOCK(loop_);
  void didConnect() REQUIRES_LOCK(loop_);
  void didDisconnect() REQUIRES_LOCK(loop_);
  void refresh() REQUIRES_LOCK(loop_);
  void askForDevices(const pa_server_info& server) REQUIRES_LOCK(loop_);
  void gotAnswer() REQUIRES_LOCK(loop_);
  void wakeAfter(Microseconds pause) REQUIRES_LOCK(loop_);
  void forgetConnection() REQUIRES_LOCK(loop_);
  void publish(State state, PulseDefaults defaults) REQUIRES_LOCK(loop_);
  State state() const;
  static PulseContext& self(void* userdata) { return *static_cast<PulseContext*>(userdata); }

  PulseLoop loop_;
  const std::string server_;
  pa_context* context_ GUARDED_BY(loop_) = nullptr;  ///< kept when it failed: the timer is made of it
  pa_time_event* timer_ GUARDED_BY(loop_) = nullptr;
  Microseconds pause_ GUARDED_BY(loop_);
  std::vector<PulseObserver*> observers_ GUARDED_BY(loop_);
  int answersDue_ GUARDED_BY(loop_) = 0;
  bool staleWhenAnswered_ GUARDED_BY(loop_) = false;
  PulseDefaults found_ GUARDED_BY(loop_);

  mutable std::mutex publishedMutex_;  ///< over the two below; a plain one, for the condition
  std::condition_variable publishedChanged_;
  State state_ = State::connecting;
  PulseDefaults defaults_;
};

}  // namespace quillbeam
