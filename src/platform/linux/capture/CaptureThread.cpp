#include "platform/linux/capture/CaptureThread.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "platform/linux/capture/ScriptedScreen.h"

namespace quillbeam {

namespace {

// The longest that giving up waits for the thread.
constexpr MediaTime longestNap{40, 1000};

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

/// Signals belong to the main thread; a thread inherits the mask of the one that makes it.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

void sleepOnHostClock(MediaTime until) {
  const auto nanoseconds = until.toNanoseconds().count();
  const timespec wake{.tv_sec = static_cast<time_t>(nanoseconds / nanosecondsPerSecond),
                      .tv_nsec = static_cast<long>(nanoseconds % nanosecondsPerSecond)};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr) == EINTR) {
  }
}

}  // namespace

CaptureThread::~CaptureThread() {
  givenUp_ = true;
  if (thread_.joinable()) thread_.join();
}

void CaptureThread::start(Completion<void> started) {
  const AllSignalsBlocked blocked;
  try {
    thread_ = std::thread([this, started] { run(started); });
  } catch (const std::system_error& error) {
    hasEnded_ = true;
    started(systemError("starting the capture thread", error.code().value()));
  }
}

void CaptureThread::stop(MediaTime end, Completion<void> stopped) {
  {
    MutexLock lock(mutex_);
    if (!hasEnded_) {
      stopRequest_.emplace(StopRequest{end, std::move(stopped)});
      return;
    }
  }
  stopped(ScreenCaptureError::notRunning);
}

void CaptureThread::run(const Completion<void>& started) {
  pthread_setname_np(pthread_self(), "screen capture");
  auto pipeline = open();
  if (!pipeline) {
    hasEnded_ = true;
    return started(pipeline.error());
  }
  const auto firstTick = (*pipeline)->begin(plan_.dispatch.hostTime());
  started(givenUp_ ? Result<void>(CommonError::cancelled) : success);
  auto outcome = tickUntilTold(**pipeline, firstTick);

  const auto asked = stopRequest();
  drain(**pipeline, asked ? asked->end : plan_.dispatch.hostTime());
  pipeline->reset();
  finish(std::move(outcome));
}

Result<std::unique_ptr<ScreenSource>> CaptureThread::openScreen() {
  if (plan_.screen.displayId == ScriptedScreen::displayId) {
    return std::make_unique<ScriptedScreen>(plan_.screen.width, plan_.screen.height);
  }
  TRY(auto grabber, ScreenGrabber::create(plan_.screen));
  return grabber;
}

Result<std::unique_ptr<CapturePipeline>> CaptureThread::open() {
  TRY(auto screen, openScreen());
  std::vector<SoundTrack> sounds;
  for (const auto type : {OutputType::audio, OutputType::microphone}) {
    if (plan_.delivery->hasOutput(type)) sounds.emplace_back(type, plan_.sounds, plan_.log);
  }
  return std::make_unique<CapturePipeline>(std::move(screen), std::move(sounds),
                                           plan_.configuration.minimumFrameInterval, *plan_.delivery);
}

Result<void> CaptureThread::tickUntilTold(CapturePipeline& pipeline, MediaTime firstTick) {
  for (auto next = firstTick; sleepUntil(next) && !stopRequest();) {
    const auto now = plan_.dispatch.hostTime();
    TRY_VOID(pipeline.tick(now, repeats()));
    next = pipeline.nextTickAfter(now);
  }
  return success;
}

void CaptureThread::drain(CapturePipeline& pipeline, MediaTime end) {
  if (givenUp_) return;
  pipeline.captureLast();
  if (pipeline.hasSound() && !sleepUntil(end + CapturePipeline::mergeDelay)) return;
  pipeline.flush(end);
}

void CaptureThread::finish(Result<void> outcome) {
  std::optional<StopRequest> asked;
  {
    MutexLock lock(mutex_);
    hasEnded_ = true;
    asked = std::exchange(stopRequest_, std::nullopt);
  }
  if (asked) return asked->stopped(givenUp_ ? Result<void>(CommonError::cancelled) : success);
  if (!givenUp_ && !outcome) plan_.endedByItself(outcome.error());
}

std::optional<CaptureThread::StopRequest> CaptureThread::stopRequest() {
  MutexLock lock(mutex_);
  return stopRequest_;
}

PicturePacer::Repeats CaptureThread::repeats() const {
  const bool isSettled = startHasReturned_ && plan_.delivery->pictureWasTaken();
  return isSettled ? PicturePacer::Repeats::everySecond : PicturePacer::Repeats::everyTick;
}

bool CaptureThread::sleepUntil(MediaTime time) const {
  for (auto now = plan_.dispatch.hostTime(); now < time && !givenUp_; now = plan_.dispatch.hostTime()) {
    sleepOnHostClock(std::min(time, now + longestNap));
  }
  return !givenUp_;
}

}  // namespace quillbeam
