#include "platform/linux/capture/LinuxCaptureStream.h"

#include <utility>

namespace quillbeam {

LinuxCaptureStream::LinuxCaptureStream(Parts parts, GrabberOptions screen, StreamConfiguration configuration,
                                       StreamDelegate& delegate)
    : parts_(parts),
      screen_(std::move(screen)),
      configuration_(configuration),
      delegate_(delegate),
      main_(parts.dispatch.main()),
      delivery_(std::make_shared<SampleDelivery>(configuration.queueDepth)) {}

LinuxCaptureStream::~LinuxCaptureStream() {
  thread_.reset();
  delivery_->close();
}

bool LinuxCaptureStream::captures(OutputType type) const {
  switch (type) {
    case OutputType::screen:
      return true;
    case OutputType::audio:
      return configuration_.capturesAudio;
    case OutputType::microphone:
      return configuration_.captureMicrophone;
  }
  std::unreachable();
}

Result<void> LinuxCaptureStream::addStreamOutput(StreamOutput& output, OutputType type, DispatchQueue& queue) {
  main_.assertCurrent();
  if (!captures(type)) return ScreenCaptureError::notConfigured;
  if (thread_) return CommonError::invalidArgument;
  return delivery_->addOutput(output, type, queue);
}

Task<void> LinuxCaptureStream::startCapture() {
  main_.assertCurrent();
  if (thread_ && !thread_->hasEnded()) co_return CommonError::invalidArgument;
  delivery_->captureStarts();
  thread_ = std::make_unique<CaptureThread>(plan());
  const auto alive = aliveFlag();
  auto started = co_await completed<void>([this](Completion<void> done) {
    main_.assertCurrent();
    thread_->start(done);
  });
  if (!*alive) co_return CommonError::cancelled;
  main_.assertCurrent();
  if (started) {
    thread_->startHasReturned();
  } else {
    thread_.reset();
  }
  co_return started;
}

Task<void> LinuxCaptureStream::stopCapture() {
  main_.assertCurrent();
  if (!thread_ || thread_->hasEnded() || stopping_) co_return ScreenCaptureError::notRunning;
  stopping_ = true;
  const auto end = parts_.dispatch.hostTime();
  const auto alive = aliveFlag();
  const auto delivery = delivery_;
  auto stopped = co_await completed<void>([this, end](Completion<void> done) {
    main_.assertCurrent();
    thread_->stop(end, done);
  });
  // The stream may be gone by now; its delivery is not.
  for (auto* queue : delivery->queues()) CO_TRY_VOID(co_await drained(*queue));
  if (!*alive) co_return CommonError::cancelled;
  main_.assertCurrent();
  stopping_ = false;
  thread_.reset();
  co_return stopped;
}

StreamStatistics LinuxCaptureStream::statistics() const { return delivery_->statistics(); }

CaptureThread::Plan LinuxCaptureStream::plan() {
  auto ended = [this, alive = aliveFlag(), delivery = delivery_, main = &main_](Error error) {
    delivery->whenDelivered([this, alive, main, error] {
      main->async([this, alive, error] {
        if (*alive) tellDelegate(error);
      });
    });
  };
  return {parts_.dispatch, parts_.sounds, parts_.log, delivery_, screen_, configuration_, std::move(ended)};
}

void LinuxCaptureStream::tellDelegate(Error error) { delegate_.streamDidStopWithError(error); }

}  // namespace quillbeam
