#include "upload/MacUploadSourceType.h"

#include <utility>

namespace quillbeam {

std::string sourceText(MacUploadSourceType type) {
  switch (type) {
    case MacUploadSourceType::audio:
      return "multipart-upload-audio-macos";
    case MacUploadSourceType::screen:
      return "multipart-upload-screen-macos";
    case MacUploadSourceType::fileImport:
      return "multipart-upload-file-macos";
  }
  std::unreachable();
}

}  // namespace quillbeam
