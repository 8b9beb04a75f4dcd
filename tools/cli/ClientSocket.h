#pragma once

#include <string>

#include "cli/ExitCode.h"
#include "platform/Platform.h"

namespace quillbeam::cli {

/// The socket a client command talks to: the one given, else the running native half's, else the default one.
Path clientSocketPath(Platform& platform, const std::string& given);

/// Tells the user why the native half cannot be reached; the exit code that says so to scripts.
ExitCode reportUnreachable(const Error& error);

}  // namespace quillbeam::cli
