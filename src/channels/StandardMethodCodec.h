#pragma once

#include "base/ByteChain.h"
#include "base/Result.h"
#include "channels/MethodCall.h"

namespace quillbeam {

/// Method calls and their replies as messages. A call is the name and the arguments; a reply is an envelope, 0 and the
/// value or 1 and code, message, details; the empty message says not implemented. Events use the same envelopes.
class StandardMethodCodec {
 public:
  static Bytes encodeCall(std::string_view method, const Value& arguments);
  /// Errors as of `StandardMessageCodec::decode`; also when the name is no string.
  static Result<MethodCall> decodeCall(ByteSpan message);

  static Bytes encodeReply(const MethodReply& reply);
  /// An error envelope may carry a stack trace as a fourth value; it is read and left out.
  static Result<MethodReply> decodeReply(ByteSpan message);
};

}  // namespace quillbeam
