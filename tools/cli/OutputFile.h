#pragma once

#include <string>
#include <string_view>

#include "base/Date.h"
#include "platform/Files.h"
#include "platform/Places.h"

namespace quillbeam::cli {

/// "Recording 2026-11-22 at 21.50.03.mp4" for the extension "mp4", local time, in the user's Videos directory.
Path defaultOutputFile(const Places& places, Date now, std::string_view extension);
/// `given` as the user meant it: relative to the working directory.
Path absolutePath(const std::string& given);
/// Also from one file system to another.
Result<void> moveFile(Files& files, const Path& from, const Path& to);

}  // namespace quillbeam::cli
