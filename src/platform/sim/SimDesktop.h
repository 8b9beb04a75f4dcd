#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "platform/desktop/UserNotifications.h"
#include "platform/desktop/WindowSystem.h"

namespace quillbeam {

/// A notification service that remembers what it was told.
class SimUserNotifications final : public UserNotifications {
 public:
  std::optional<Error> failsWith;
  std::vector<UserNotification> shown;

  Task<void> add(UserNotification notification) override {
    if (failsWith) co_return *failsWith;
    shown.push_back(std::move(notification));
    co_return success;
  }
};

/// A screen with at most one window on it, whose close button the test presses.
class SimWindowSystem final : public WindowSystem {
 public:
  bool hasDisplay = true;
  ApplicationDelegate* applicationDelegate = nullptr;

  void setApplicationDelegate(ApplicationDelegate* delegate) override { applicationDelegate = delegate; }
  Result<std::unique_ptr<MainWindow>> makeMainWindow(MainWindow::Delegate& delegate) override {
    if (!hasDisplay) return WindowSystemError::noDisplay;
    return std::make_unique<Window>(*this, delegate);
  }

  bool hasWindow() const { return window_ != nullptr; }
  bool isWindowVisible() const { return window_ != nullptr && window_->isVisible(); }
  UserInterfaceState shownState() const { return state_; }
  /// How often the window came to the front.
  int orderedFront() const { return orderedFront_; }
  void close() { window_->delegate().windowCloseRequested(); }

 private:
  class Window final : public MainWindow {
   public:
    Window(SimWindowSystem& system, Delegate& delegate) : system_(system), delegate_(delegate) {
      system_.window_ = this;
    }
    ~Window() override { system_.window_ = nullptr; }
    void makeKeyAndOrderFront() override {
      isVisible_ = true;
      ++system_.orderedFront_;
    }
    void orderOut() override { isVisible_ = false; }
    bool isVisible() const override { return isVisible_; }
    void setUserInterfaceState(UserInterfaceState state) override { system_.state_ = state; }
    Delegate& delegate() const { return delegate_; }

   private:
    SimWindowSystem& system_;
    Delegate& delegate_;
    bool isVisible_ = false;
  };

  Window* window_ = nullptr;
  UserInterfaceState state_ = UserInterfaceState::missing;
  int orderedFront_ = 0;
};

}  // namespace quillbeam
