#include "chunking/VideoChunkError.h"

#include <utility>

namespace quillbeam {

std::string describe(VideoChunkError error) {
  switch (error) {
    case VideoChunkError::uploadFailed:
      return "Upload failed: ";
    case VideoChunkError::invalidMP4Structure:
      return "Invalid fragmented MP4 structure detected";
    case VideoChunkError::fragmentNotComplete:
      return "Fragment boundary not properly aligned";
    case VideoChunkError::uploadDelegateNotSet:
      return "Upload delegate not configured for chunk uploads";
  }
  std::unreachable();
}

}  // namespace quillbeam
