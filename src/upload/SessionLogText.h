#pragma once

#include <string>

namespace quillbeam {

/// How log lines name a session: the first characters of its id are enough to tell them apart.
inline std::string shortSessionId(const std::string& sessionId) { return sessionId.substr(0, 8); }
inline std::string ofSession(const std::string& sessionId) { return " [session: " + shortSessionId(sessionId) + "]"; }

}  // namespace quillbeam
