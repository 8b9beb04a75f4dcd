#pragma once

#include "base/Error.h"

namespace quillbeam {

/// Hears how a recording's upload goes. Main queue.
class VideoChunkWriterDelegate {
 public:
  virtual ~VideoChunkWriterDelegate() = default;
  virtual void chunkWriterDidUploadPart(int partNumber) = 0;
  virtual void chunkWriterDidFailWithError(const Error& error) = 0;
};

}  // namespace quillbeam
