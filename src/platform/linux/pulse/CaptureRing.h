#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/linux/pulse/HostClockTrack.h"

namespace quillbeam {

/// Carries captured sound from the sound server's thread to the reader's without locks or allocation. One thread
/// writes, one reads. Holds at least two and a half seconds in pieces of 10 ms; while it is full, sound is left out and
/// counted, and the next piece that fits is marked as a restart, so that the reader places it by its time stamp.
class CaptureRing {
 public:
  /// Writer. Copies the sound, cut into pieces.
  void write(CapturedSound sound) {
    while (!sound.samples.empty()) {
      const auto part = sound.samples.first(std::min(sound.samples.size(), pieceSamples));
      if (sound.continuity == Continuity::restarts) restartPending_ = true;
      writePiece({part, sound.sampleRate, sound.hostTime, Continuity::continues});
      sound.samples = sound.samples.subspan(part.size());
      sound.hostTime.reset();
      sound.continuity = Continuity::continues;
    }
  }

  /// Reader. Calls `visit(const CapturedSound&)` for every piece that is there.
  template <class Visitor>
  void drain(Visitor visit) {
    const std::size_t end = written_.load(std::memory_order_acquire);
    std::size_t at = read_.load(std::memory_order_relaxed);
    for (; at != end; ++at) {
      const Slot& slot = slots_[at % slotCount];
      visit(CapturedSound{std::span(slot.samples).first(slot.used), slot.sampleRate, slot.hostTime, slot.continuity});
      read_.store(at + 1, std::memory_order_release);
    }
  }

  /// Any thread: pieces left out so far.
  std::int64_t overruns() const { return overruns_.load(std::memory_order_relaxed); }

 private:
  static constexpr std::size_t slotCount = 256;
  static constexpr std::size_t pieceSamples = HostClockTrack::framesPerBlock * HostClockTrack::channels;
  struct Slot {
    std::array<float, pieceSamples> samples;
    std::size_t used;
    int sampleRate;
    std::optional<std::int64_t> hostTime;
    Continuity continuity;
  };

  void writePiece(const CapturedSound& piece) {
    const std::size_t at = written_.load(std::memory_order_relaxed);
    if (at - read_.load(std::memory_order_acquire) == slotCount) {
      overruns_.fetch_add(1, std::memory_order_relaxed);
      restartPending_ = true;
      return;
    }
    Slot& slot = slots_[at % slotCount];
    std::ranges::copy(piece.samples, slot.samples.begin());
    slot.used = piece.samples.size();
    slot.sampleRate = piece.sampleRate;
    slot.hostTime = piece.hostTime;
    slot.continuity = restartPending_ ? Continuity::restarts : Continuity::continues;
    restartPending_ = false;
    written_.store(at + 1, std::memory_order_release);
  }

  std::unique_ptr<Slot[]> slots_ = std::make_unique<Slot[]>(slotCount);
  bool restartPending_ = false;  ///< writer's
  std::atomic<std::size_t> written_ = 0;
  std::atomic<std::size_t> read_ = 0;
  std::atomic<std::int64_t> overruns_ = 0;
};

}  // namespace quillbeam
