#include "platform/media/SegmentWriter.h"

#include <utility>

namespace quillbeam {

std::string_view toText(MediaType type) {
  switch (type) {
    case MediaType::video:
      return "vide";
    case MediaType::audio:
      return "soun";
  }
  std::unreachable();
}

}  // namespace quillbeam
