#pragma once

#include "base/ByteChain.h"

namespace quillbeam::fuzz {

/// Values, method calls and replies: what is accepted comes back the same when written again.
void standardCodec(ByteSpan input);
/// A stream of frames: found the same however it is cut.
void frameStream(ByteSpan input);
/// JSON text: what is accepted comes back the same when written again.
void json(ByteSpan input);
/// The record of an upload: what is accepted comes back the same when written again.
void sessionRecord(ByteSpan input);
/// What the upload service answers: a result or an error.
void serviceAnswer(ByteSpan input);
/// The upload client's configuration file: it starts, configured or not.
void clientConfiguration(ByteSpan input);

}  // namespace quillbeam::fuzz
