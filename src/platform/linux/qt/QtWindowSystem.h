#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Logging.h"
#include "platform/desktop/WindowSystem.h"

namespace quillbeam {

/// Windows by Qt Quick, drawn without a graphics card; its event loop drives the main queue. One per process, made and
/// used on the main thread.
class QtWindowSystem final : public WindowSystem {
 public:
  struct Options {
    std::string platform = "xcb";  ///< Qt's name of the window system
    /// The main queue: readable while closures wait on it, and what runs them.
    int mainDescriptor = -1;
    std::function<void()> drainMain;
  };

  /// Only where the display is known to answer: Qt ends the process otherwise.
  QtWindowSystem(SystemLog& log, Options options);
  ~QtWindowSystem() override;

  void setApplicationDelegate(ApplicationDelegate* delegate) override;
  Result<std::unique_ptr<MainWindow>> makeMainWindow(MainWindow::Delegate& delegate) override;

  /// Runs events and main's closures until `stop`. When the display goes away, `ended` is called all the same, main's
  /// closures still run until `stop`, and then the process ends with code 1: Qt cannot go on without its display.
  void run();
  /// Any thread.
  void stop();
  /// The desktop wants the application to end. Once, before `run`.
  void onEnd(std::function<void()> ended);

 private:
  class Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace quillbeam
