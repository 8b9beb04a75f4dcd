#include "platform/linux/pulse/PulseContext.h"

#include <pulse/error.h>
#include <pulse/rtclock.h>

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

constexpr pa_usec_t firstPause = 250'000;
constexpr pa_usec_t longestPause = 4'000'000;
constexpr pa_usec_t refreshPause = 500'000;

std::string textOrEmpty(const char* text) { return text ? text : ""; }

/// Operations are not followed: their callback says everything.
void letGo(pa_operation* operation) {
  if (operation) pa_operation_unref(operation);
}

}  // namespace

PulseContext::PulseContext(std::string server) : server_(std::move(server)), pause_(firstPause) {
  PulseLock lock(loop_);
  connect();
}

PulseContext::~PulseContext() {
  PulseLock lock(loop_);
  forgetConnection();
}

pa_context* PulseContext::connection() const {
  return context_ && pa_context_get_state(context_) == PA_CONTEXT_READY ? context_ : nullptr;
}

void PulseContext::addObserver(PulseObserver& observer) { observers_.push_back(&observer); }

void PulseContext::removeObserver(PulseObserver& observer) { std::erase(observers_, &observer); }

bool PulseContext::answers(Duration patience) {
  {
    PulseLock lock(loop_);
    if (state() == State::unavailable) connect();
  }
  std::unique_lock published(publishedMutex_);
  publishedChanged_.wait_for(published, patience, [this] { return state_ != State::connecting; });
  return state_ == State::ready;
}

PulseContext::State PulseContext::state() const {
  std::lock_guard published(publishedMutex_);
  return state_;
}

PulseDefaults PulseContext::defaults() const {
  std::lock_guard published(publishedMutex_);
  return defaults_;
}

void PulseContext::publish(State state, PulseDefaults defaults) {
  {
    std::lock_guard published(publishedMutex_);
    state_ = state;
    defaults_ = std::move(defaults);
  }
  publishedChanged_.notify_all();
  for (PulseObserver* observer : observers_) observer->serverDidChange();
}

void PulseContext::connect() {
  forgetConnection();
  {
    std::lock_guard published(publishedMutex_);
    state_ = State::connecting;
  }
  context_ = pa_context_new(loop_.api(), "Quillbeam");
  QB_CHECK(context_ != nullptr);
  pa_context_set_state_callback(
      context_,
      [](pa_context* context, void* userdata) {
        self(userdata).loop_.assertHeld();
        const pa_context_state_t state = pa_context_get_state(context);
        if (state == PA_CONTEXT_READY) self(userdata).didConnect();
        if (!PA_CONTEXT_IS_GOOD(state)) self(userdata).didDisconnect();
      },
      this);
  // A recorder does not start the user's sound server; one that is wanted is there.
  const char* server = server_.empty() ? nullptr : server_.c_str();
  const bool refused = pa_context_connect(context_, server, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0;
  if (refused && PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) didDisconnect();
}

void PulseContext::forgetConnection() {
  if (!context_) return;
  if (timer_) loop_.api()->time_free(timer_);
  timer_ = nullptr;
  answersDue_ = 0;
  pa_context_set_state_callback(context_, nullptr, nullptr);
  pa_context_set_subscribe_callback(context_, nullptr, nullptr);
  pa_context_disconnect(context_);
  pa_context_unref(context_);
  context_ = nullptr;
}

void PulseContext::didConnect() {
  pause_ = firstPause;
  pa_context_set_subscribe_callback(
      context_,
      [](pa_context*, pa_subscription_event_type_t, uint32_t, void* userdata) {
        self(userdata).loop_.assertHeld();
        self(userdata).refresh();
      },
      this);
  const auto events = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK |
                                                          PA_SUBSCRIPTION_MASK_SOURCE);
  letGo(pa_context_subscribe(context_, events, nullptr, nullptr));
  refresh();
}

void PulseContext::didDisconnect() {
  answersDue_ = 0;
  wakeAfter(pause_);
  pause_ = std::min(2 * pause_, longestPause);
  publish(State::unavailable, {});
}

void PulseContext::wakeAfter(Microseconds pause) {
  const Microseconds due = pa_rtclock_now() + pause;
  if (timer_) {
    pa_context_rttime_restart(context_, timer_, due);
    return;
  }
  timer_ = pa_context_rttime_new(
      context_, due,
      [](pa_mainloop_api*, pa_time_event*, const timeval*, void* userdata) {
        PulseContext& context = self(userdata);
        context.loop_.assertHeld();
        if (context.connection()) {
          context.refresh();
        } else {
          context.connect();
        }
      },
      this);
}

void PulseContext::refreshLater() {
  if (connection()) wakeAfter(refreshPause);
}

void PulseContext::refresh() {
  if (answersDue_ > 0) {
    staleWhenAnswered_ = true;
    return;
  }
  staleWhenAnswered_ = false;
  found_ = {};
  answersDue_ = 1;
  letGo(pa_context_get_server_info(
      context_,
      [](pa_context*, const pa_server_info* server, void* userdata) {
        self(userdata).loop_.assertHeld();
        if (server) self(userdata).askForDevices(*server);
        self(userdata).gotAnswer();
      },
      this));
}

void PulseContext::askForDevices(const pa_server_info& server) {
  const std::string sink = textOrEmpty(server.default_sink_name);
  const std::string source = textOrEmpty(server.default_source_name);
  if (!sink.empty()) {
    ++answersDue_;
    letGo(pa_context_get_sink_info_by_name(
        context_, sink.c_str(),
        [](pa_context*, const pa_sink_info* info, int end, void* userdata) {
          PulseContext& context = self(userdata);
          context.loop_.assertHeld();
          if (end) return context.gotAnswer();
          if (!info->monitor_source_name) return;
          context.found_.systemAudio = PulseDevice{info->monitor_source_name, textOrEmpty(info->description),
                                                   static_cast<int>(info->sample_spec.rate)};
        },
        this));
  }
  if (!source.empty()) {
    ++answersDue_;
    letGo(pa_context_get_source_info_by_name(
        context_, source.c_str(),
        [](pa_context*, const pa_source_info* info, int end, void* userdata) {
          PulseContext& context = self(userdata);
          context.loop_.assertHeld();
          if (end) return context.gotAnswer();
          if (info->monitor_of_sink != PA_INVALID_INDEX) return;
          context.found_.microphone = PulseDevice{textOrEmpty(info->name), textOrEmpty(info->description),
                                                  static_cast<int>(info->sample_spec.rate)};
        },
        this));
  }
}

void PulseContext::gotAnswer() {
  if (--answersDue_ > 0) return;
  if (staleWhenAnswered_) return refresh();
  publish(State::ready, found_);
}

}  // namespace quillbeam
