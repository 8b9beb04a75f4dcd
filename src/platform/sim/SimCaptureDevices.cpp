#include "platform/sim/SimCaptureDevices.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

Result<std::unique_ptr<CaptureDeviceInput>> SimCaptureDevices::makeInput(const CaptureDevice&) {
  if (script.inputError) return *script.inputError;
  return std::make_unique<CaptureDeviceInput>();
}

std::unique_ptr<CaptureSession> SimCaptureDevices::makeSession() {
  auto session = std::make_unique<SimCaptureSession>(*this);
  sessions_.push_back(session.get());
  return session;
}

SimCaptureSession::~SimCaptureSession() {
  stopRunning();
  std::erase(devices_.sessions_, this);
}

bool SimCaptureSession::addInput(std::unique_ptr<CaptureDeviceInput> input) {
  if (input_ || devices_.script.session == SimCaptureDevices::Session::refusesInput) return false;
  input_ = std::move(input);
  return true;
}

bool SimCaptureSession::addAudioDataOutput(Callback callback, DispatchQueue& queue) {
  if (queue_ != nullptr || devices_.script.session == SimCaptureDevices::Session::refusesOutput) return false;
  callback_ = std::move(callback);
  queue_ = &queue;
  return true;
}

void SimCaptureSession::startRunning() {
  if (running_) return;
  running_ = std::make_shared<bool>(true);
  tone_.emplace(devices_.script.tone, devices_.dispatch_.hostTime());
  scheduleBlock();
}

void SimCaptureSession::stopRunning() {
  timer_.reset();
  const auto run = std::exchange(running_, nullptr);
  if (!run || queue_ == nullptr) return;
  if (queue_->isCurrent()) {
    *run = false;
  } else {
    queue_->sync([&] { *run = false; });
  }
}

void SimCaptureSession::deliver(SampleBuffer sample) {
  if (!running_ || queue_ == nullptr) return;
  queue_->async([run = running_, callback = callback_, sample = std::move(sample)] {
    if (*run) callback(sample);
  });
}

void SimCaptureSession::scheduleBlock() {
  if (devices_.script.samples == SimSamples::byHand || !input_) return;
  const auto wait = (tone_->nextEnd() - devices_.dispatch_.hostTime()).toNanoseconds();
  timer_ = devices_.dispatch_.main().after(std::max(wait, Duration(0)), weakly(this, [](SimCaptureSession& self) {
                                             if (!self.running_) return;
                                             self.deliver(self.tone_->nextBlock());
                                             self.scheduleBlock();
                                           }));
}

}  // namespace quillbeam
