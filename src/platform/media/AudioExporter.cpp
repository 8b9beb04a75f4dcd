#include "platform/media/AudioExporter.h"

#include <utility>

namespace quillbeam {

std::string describe(AudioExporterError error) {
  switch (error) {
    case AudioExporterError::cannotRead:
      return "The file's sound cannot be read";
    case AudioExporterError::noSuchTrack:
      return "The file has no such audio track";
    case AudioExporterError::cannotEncode:
      return "The mixed sound cannot be encoded";
    case AudioExporterError::diskFull:
      return "The disk is full";
    case AudioExporterError::writeFailed:
      return "Writing the mixed file failed";
  }
  std::unreachable();
}

}  // namespace quillbeam
