#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace quillbeam {

enum class UserInterfaceState { missing, connected };

/// The application's main window. It has no close of its own: whoever made it hides it instead. Main queue.
class MainWindow {
 public:
  class Delegate {
   public:
    virtual ~Delegate() = default;
    /// The user wants the window closed; it stays as it is.
    virtual void windowCloseRequested() = 0;
  };

  virtual ~MainWindow() = default;

  /// Shows it in front of all others and asks for the keyboard.
  virtual void makeKeyAndOrderFront() = 0;
  virtual void orderOut() = 0;
  virtual bool isVisible() const = 0;
  /// What the window tells its user.
  virtual void setUserInterfaceState(UserInterfaceState state) = 0;
};

/// What the window system asks of the application. Main queue.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  enum class Termination { go, stay };
  virtual Termination applicationShouldTerminateAfterLastWindowClosed() = 0;
  /// Whether the session may start the application again, in the state in which it ended.
  virtual bool applicationSupportsSecureRestorableState() = 0;
};

enum class WindowSystemError {
  noDisplay,         ///< this process shows no windows, or there is nothing to show them on
  cannotMakeWindow,  ///< underlying: the reason
};
std::string describe(WindowSystemError error);
constexpr std::string_view errorDomain(WindowSystemError) { return "WindowSystemError"; }

/// The desktop as a place for windows. Main queue.
class WindowSystem {
 public:
  virtual ~WindowSystem() = default;
  /// From now on until it is replaced, nullptr for nobody. Without one the application stays and is not restored.
  virtual void setApplicationDelegate(ApplicationDelegate* delegate) = 0;
  /// Hidden at first. The delegate outlives it.
  virtual Result<std::unique_ptr<MainWindow>> makeMainWindow(MainWindow::Delegate& delegate) = 0;
};

}  // namespace quillbeam
