#pragma once

#include "platform/Files.h"

namespace quillbeam {

inline constexpr std::string_view bundleIdentifier = "io.quillbeam.app";

/// The per-user directories, all absolute; none is created by asking. `inApplicationSupport` etc. of this system lie in
/// a folder named after `bundleIdentifier` below them.
struct Places {
  Path applicationSupport;  ///< $XDG_DATA_HOME, ~/.local/share
  Path caches;              ///< $XDG_CACHE_HOME, ~/.cache
  Path preferences;         ///< $XDG_CONFIG_HOME, ~/.config
  Path temporary;           ///< $TMPDIR, /tmp
  Path movies;              ///< the user's Videos directory (xdg user-dirs), ~/Videos
  Path runtime;             ///< $XDG_RUNTIME_DIR; a private directory below `temporary` when unset
};

}  // namespace quillbeam
