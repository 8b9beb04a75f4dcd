#pragma once

#include <string>

#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// A writer's state as the recording path's log lines show it.
inline std::string rawStatus(const AssetWriter& writer) { return std::to_string(static_cast<int>(writer.status())); }

inline std::string errorText(const AssetWriter& writer) {
  const auto error = writer.error();
  return error ? error->description() : "none";
}

}  // namespace quillbeam
