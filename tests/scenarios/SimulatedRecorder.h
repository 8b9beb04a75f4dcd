#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "platform/sim/SimRandomSource.h"
#include "scenarios/UploadSimulator.h"
#include "upload/NativeUploadAdapter.h"

namespace quillbeam {

/// A chunk writer as the adapter sees it: hands its parts over as they come, finishes when each was answered for. After
/// a failed initialisation it sends no more; after a failed hand-over it goes on and knows that bytes are missing.
class SimulatedRecorder : public std::enable_shared_from_this<SimulatedRecorder> {
 public:
  SimulatedRecorder(UploadProcess& process, std::uint64_t seed, std::shared_ptr<RecordingFacts> facts)
      : main_(process.platform.dispatch.main()),
        random_(seed),
        facts_(std::move(facts)),
        adapter_(process.manager, MacUploadSourceType::screen) {}

  void start() {
    adapter_.initializeUpload({"team", "folder", "meeting.mp4", "video/mp4", std::nullopt, std::nullopt},
                              [self = shared_from_this()](const Result<InitializeUploadResponse>& answer) {
                                if (!self->facts_->wasCut) self->begin(answer);
                              });
  }
  bool isDone() const { return isDone_; }

  static std::pair<std::size_t, std::size_t> rangeOf(int part, std::size_t size, std::size_t partSize) {
    const std::size_t from = static_cast<std::size_t>(part - 1) * partSize;
    return {from, std::min(partSize, size - from)};
  }
  static constexpr std::size_t partSize = 16;

 private:
  void begin(const Result<InitializeUploadResponse>& answer) {
    isDone_ = !answer;
    if (!answer) return;
    facts_->fileId = answer->fileId;
    sendNextLater();
  }
  void sendNextLater() {
    next_ = main_.after(std::chrono::milliseconds(random_.below(2000)), [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->sendNext();
    });
  }
  void sendNext() {
    const int part = ++sent_;
    const auto [from, count] = rangeOf(part, facts_->source.size(), partSize);
    const auto begin = facts_->source.begin() + static_cast<std::ptrdiff_t>(from);
    if (part < facts_->parts) sendNextLater();
    adapter_.uploadChunk(ByteChain(Bytes(begin, begin + static_cast<std::ptrdiff_t>(count))), part,
                         [self = shared_from_this(), part](const Result<void>& handedOver) {
                           if (!self->facts_->wasCut) self->answered(part, handedOver);
                         });
  }
  void answered(int part, const Result<void>& handedOver) {
    ++facts_->answers[part];
    if (handedOver) facts_->handedOver.insert(part);
    if (++answered_ == facts_->parts) finish();
  }
  void finish() {
    ++facts_->finalizeCalls;
    adapter_.finalizeUpload([self = shared_from_this()](const Result<void>& finalized) {
      if (self->facts_->wasCut) return;
      ++self->facts_->finalizeAnswers;
      self->facts_->succeeded = finalized.has_value();
      self->isDone_ = true;
    });
  }

  DispatchQueue& main_;
  SimRandomSource random_;
  const std::shared_ptr<RecordingFacts> facts_;
  NativeUploadAdapter adapter_;
  TimerHandle next_;
  int sent_ = 0;
  int answered_ = 0;
  bool isDone_ = false;
};

}  // namespace quillbeam
