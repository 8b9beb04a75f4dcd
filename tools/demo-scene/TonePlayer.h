#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace quillbeam::demo {

/// What to play where.
struct Tone {
  double hertz = 440;
  std::string sink;  ///< empty: the default one
  enum class Shape { steady, pulseEachSecond } shape = Shape::steady;

  /// "880", "880@mouth"; "880/s" for a pulse each second. False when it is none of these.
  static bool parse(const std::string& text, Tone& tone);
};

/// Plays one tone on a thread of its own until it is destroyed.
class TonePlayer {
 public:
  explicit TonePlayer(Tone tone) : thread_([this, tone] { play(tone); }) {}
  ~TonePlayer() {
    stopping_ = true;
    thread_.join();
  }

 private:
  void play(const Tone& tone);
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace quillbeam::demo
