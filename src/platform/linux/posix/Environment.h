#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Logging.h"
#include "platform/Places.h"
#include "platform/SystemVersion.h"

namespace quillbeam {

/// Looks a variable up; nullopt when it is unset or empty.
using Environment = std::function<std::optional<std::string>(const char* name)>;
std::optional<std::string> processEnvironment(const char* name);

/// The directories as the XDG base directory rules and the user's user-dirs.dirs have them. Relative paths in the
/// variables are ignored, as those rules ask. Reads the environment and one file; creates nothing.
Places xdgPlaces(const Environment& environment = processEnvironment);

/// QUILLBEAM_SYSTEM_VERSION ("14.4", "15"); the default version when it is unset or says nothing sensible.
SystemVersion systemVersionFromEnvironment(const Environment& environment = processEnvironment);

/// QUILLBEAM_LOG ("debug", "info", "notice", "error"); notice otherwise.
LogLevel logLevelFromEnvironment(const Environment& environment = processEnvironment);

}  // namespace quillbeam
