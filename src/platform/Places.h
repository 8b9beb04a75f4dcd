#pragma once

#include <optional>

#include "platform/Files.h"

namespace quillbeam {

inline constexpr std::string_view bundleIdentifier = "io.quillbeam.app";

/// The per-user directories, all absolute (empty where the system has none); none is created by asking. What is this
/// system's own lies in a folder named after `bundleIdentifier` below them.
struct Places {
  Path applicationSupport;  ///< $XDG_DATA_HOME, ~/.local/share
  Path caches;              ///< $XDG_CACHE_HOME, ~/.cache
  Path preferences;         ///< $XDG_CONFIG_HOME, ~/.config
  Path temporary;           ///< $TMPDIR, a folder among the caches; for whoever writes there to create
  Path movies;              ///< the user's Videos directory (xdg user-dirs), ~/Videos
  Path runtime;             ///< $XDG_RUNTIME_DIR; a private directory below $TMPDIR or /tmp when unset
};

/// Where this system keeps `name`; nullopt when the user has no place for application data.
inline std::optional<Path> inApplicationSupport(const Places& places, std::string_view name) {
  if (places.applicationSupport.empty()) return std::nullopt;
  return joined(joined(places.applicationSupport, bundleIdentifier), name);
}

}  // namespace quillbeam
