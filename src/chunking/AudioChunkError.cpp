#include "chunking/AudioChunkError.h"

#include <utility>

namespace quillbeam {

std::string describe(AudioChunkError error) {
  switch (error) {
    case AudioChunkError::uploadFailed:
      return "Upload failed: ";
    case AudioChunkError::flutterBridgeNotSet:
      return "Flutter bridge not configured for chunk uploads";
    case AudioChunkError::uploadDelegateNotSet:
      return "Upload delegate not configured for chunk uploads";
  }
  std::unreachable();
}

}  // namespace quillbeam
