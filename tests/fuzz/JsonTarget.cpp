#include "base/Check.h"
#include "base/Json.h"
#include "fuzz/FuzzTargets.h"

namespace quillbeam::fuzz {

void json(ByteSpan input) {
  const auto value = parseJson({reinterpret_cast<const char*>(input.data()), input.size()});
  if (!value) return;
  for (const JsonLayout layout : {JsonLayout::compact, JsonLayout::indented}) {
    const auto written = toJson(*value, layout);
    QB_CHECK(written.has_value());
    const auto again = parseJson(*written);
    QB_CHECK(again.has_value());
    QB_CHECK(toJson(*again, layout).value() == *written);
  }
}

}  // namespace quillbeam::fuzz
