#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace quillbeam {

/// Where captured sound waits at its place on a time axis until it is read: stereo frames by absolute number, written
/// ahead of the reader, read once in order. What was not written in time reads as silence, what is written behind the
/// reader or too far ahead of it is lost; nothing ever moves. Where sound and silence or two pieces of sound meet, the
/// reader glides over a few milliseconds so that no edge clicks. Confined to its owner; memory is fixed.
class SoundTimeline {
 public:
  /// Reading begins at frame `begin`; sound may be written up to `capacity` frames ahead of the reader.
  SoundTimeline(std::int64_t begin, int capacity);

  /// What is written from now on does not continue the signal written before, even where it touches it.
  void beginPiece() { ++piece_; }
  /// Places interleaved stereo frames at `position` and behind. Positions rise: a frame is written at most once.
  void write(std::int64_t position, std::span<const float> samples);
  /// Fills `samples` with the next frames and moves on.
  void read(std::span<float> samples);

  std::int64_t readPosition() const { return readPosition_; }

 private:
  using Piece = std::uint32_t;
  static constexpr Piece silence = 0;
  struct Span {
    std::int64_t begin;
    std::int64_t end;
    Piece piece;
  };
  struct Stretch {
    Piece piece;
    std::int64_t frames;
  };

  Stretch stretchAhead(std::int64_t frames);
  void copyOut(std::span<float> samples);
  void glideAcrossEdge(std::span<float> samples);
  /// The ring's memory for the frames from `position` on, up to `frames` or the ring's end.
  std::span<float> slots(std::int64_t position, std::int64_t frames);

  std::vector<float> ring_;
  std::int64_t capacity_;
  std::int64_t readPosition_;
  std::deque<Span> written_;  ///< what lies ahead of the reader, in order
  Piece piece_ = 1;           ///< being written
  Piece reading_ = silence;
  std::array<float, 2> lastFrame_{};
  std::array<float, 2> glideFrom_{};
  std::int64_t glided_;  ///< frames since the last edge, up to the length of a glide
};

}  // namespace quillbeam
