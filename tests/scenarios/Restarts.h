#pragma once

#include <functional>
#include <vector>

#include "platform/sim/SimWorld.h"

namespace quillbeam {

/// How a machine may go on after a process died: with its memory, or without its power and some of what was written.
inline std::vector<std::function<void(SimWorld&)>> restarts() {
  return {[](SimWorld& world) { world.restart(); }, [](SimWorld& world) { world.restart(PowerCut::dropUnsynced); },
          [](SimWorld& world) { world.restart(PowerCut::keepUnsynced); },
          [](SimWorld& world) { world.restart(PowerCut::tearUnsynced); }};
}

}  // namespace quillbeam
