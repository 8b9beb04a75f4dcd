#pragma once

#include "base/Result.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// Finishes the movie file that a dead process left at `path`; see `MediaWriters::repair`. Repeating it, also after an
/// interruption at any point, is harmless.
Result<RepairReport> repairMovie(const Path& path);

}  // namespace quillbeam
