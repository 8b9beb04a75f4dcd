#include "base/Check.h"
#include "channels/StandardMessageCodec.h"
#include "channels/StandardMethodCodec.h"
#include "fuzz/FuzzTargets.h"

namespace quillbeam::fuzz {

namespace {

/// Compared as bytes: a NaN differs from itself.
template <class Decode, class Encode>
void holdsItsForm(ByteSpan input, Decode decode, Encode encode) {
  const auto first = decode(input);
  if (!first) return;
  const Bytes written = encode(*first);
  const auto second = decode(written);
  QB_CHECK(second.has_value());
  QB_CHECK(encode(*second) == written);
}

}  // namespace

void standardCodec(ByteSpan input) {
  holdsItsForm(input, StandardMessageCodec::decode, StandardMessageCodec::encode);
  holdsItsForm(input, StandardMethodCodec::decodeReply, StandardMethodCodec::encodeReply);
  holdsItsForm(input, StandardMethodCodec::decodeCall,
               [](const MethodCall& call) { return StandardMethodCodec::encodeCall(call.method, call.arguments); });
}

}  // namespace quillbeam::fuzz
