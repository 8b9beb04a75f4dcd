#pragma once

#include "base/ByteChain.h"
#include "base/Result.h"
#include "base/Value.h"

namespace quillbeam {

/// Values as the engine's standard message codec writes them: a type byte, then the content, little endian, numbers
/// wider than 32 bits aligned to the start of the message. `docs/formats/standard-codec.md` has the format.
class StandardMessageCodec {
 public:
  /// Text that is not UTF-8 goes out with U+FFFD for each byte that does not fit, so that one odd window title does not
  /// make a whole message unreadable.
  static Bytes encode(const Value& value);

  /// Exactly one value. Truncated or over-long input, unknown type bytes, bad UTF-8, a map with a repeated string key,
  /// more than 128 levels or a million values give `CommonError::malformedData`; memory grows with the bytes that are
  /// there, never with a size they declare. An integer too large for 64 bits arrives as its hexadecimal text.
  static Result<Value> decode(ByteSpan message);
};

}  // namespace quillbeam
