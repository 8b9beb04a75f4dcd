#include <algorithm>
#include <vector>

#include "base/Check.h"
#include "channels/FrameCodec.h"
#include "fuzz/FuzzTargets.h"

namespace quillbeam::fuzz {

namespace {

struct Reading {
  std::vector<Frame> frames;
  bool broken = false;
  bool operator==(const Reading&) const = default;
};

Reading readInPieces(ByteSpan stream, std::size_t pieceSize) {
  FrameReader reader;
  Reading reading;
  for (std::size_t i = 0; i < stream.size() && !reading.broken; i += pieceSize) {
    reader.append(stream.subspan(i, std::min(pieceSize, stream.size() - i)));
    auto frame = reader.next();
    for (; frame && *frame; frame = reader.next()) reading.frames.push_back(**std::move(frame));
    reading.broken = !frame;
  }
  return reading;
}

}  // namespace

void frameStream(ByteSpan input) {
  if (input.empty()) return;
  const std::size_t pieceSize = input.front() + std::size_t{1};
  const ByteSpan stream = input.subspan(1);
  const Reading whole = readInPieces(stream, std::max<std::size_t>(1, stream.size()));
  QB_CHECK(readInPieces(stream, pieceSize) == whole);

  Bytes written;
  for (const Frame& frame : whole.frames) {
    const Bytes bytes = FrameCodec::encode(frame).value().flattened();
    written.insert(written.end(), bytes.begin(), bytes.end());
  }
  QB_CHECK(std::ranges::equal(written, stream.first(written.size())));
}

}  // namespace quillbeam::fuzz
