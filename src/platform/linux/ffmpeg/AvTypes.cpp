#include "platform/linux/ffmpeg/AvTypes.h"

#include <string>

namespace quillbeam {

Error avError(std::string_view doing, int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return Error("FFmpegError", code, std::string(doing) + ": " + text);
}

}  // namespace quillbeam
