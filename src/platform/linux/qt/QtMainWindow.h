#pragma once

#include <memory>

#include "platform/desktop/WindowSystem.h"

namespace quillbeam {

/// The main window: a Qt Quick scene (MainWindow.qml) that shows whether a user interface is connected. Main thread.
class QtMainWindow final : public MainWindow {
 public:
  /// `WindowSystemError::cannotMakeWindow` when the scene does not load.
  static Result<std::unique_ptr<MainWindow>> create(Delegate& delegate);
  ~QtMainWindow() override;

  void makeKeyAndOrderFront() override;
  void orderOut() override;
  bool isVisible() const override;
  void setUserInterfaceState(UserInterfaceState state) override;

 private:
  class View;
  explicit QtMainWindow(std::unique_ptr<View> view);
  std::unique_ptr<View> view_;
};

}  // namespace quillbeam
