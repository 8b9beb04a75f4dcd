#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/ByteChain.h"
#include "base/Result.h"
#include "channels/Frame.h"

namespace quillbeam {

enum class FrameError {
  oversized,  ///< longer than `FrameCodec::largestFrame`
  malformed,  ///< not a frame: unknown kind, or parts that do not add up
};
std::string describe(FrameError error);
constexpr std::string_view errorDomain(FrameError) { return "FrameError"; }

/// Frames as bytes of a stream; `docs/formats/socket-wire.md` has the format and an example.
class FrameCodec {
 public:
  /// Of the bytes that follow a frame's length.
  static constexpr std::size_t largestFrame = std::size_t{64} << 20;

  /// `message` is moved into the chain, not copied. `FrameError::oversized` when it, or the channel's name, is too
  /// long.
  static Result<ByteChain> encode(Frame frame);
};

/// Cuts a stream back into frames, however it arrives. What has arrived is all it stores. After an error the stream is
/// out of step for good: every further `next` gives the error again.
class FrameReader {
 public:
  void append(ByteSpan bytes);
  /// The next whole frame, or nothing when its end has not arrived yet.
  Result<std::optional<Frame>> next();

 private:
  static std::optional<Frame> parse(ByteSpan body);
  void discardRead();

  Bytes stored_;
  std::size_t read_ = 0;  ///< how many of `stored_` were handed out already
  std::optional<FrameError> fault_;
};

}  // namespace quillbeam
