#include "platform/desktop/WindowSystem.h"

#include <utility>

namespace quillbeam {

std::string describe(WindowSystemError error) {
  switch (error) {
    case WindowSystemError::noDisplay:
      return "There is no display to show windows on";
    case WindowSystemError::cannotMakeWindow:
      return "The window could not be made";
  }
  std::unreachable();
}

}  // namespace quillbeam
