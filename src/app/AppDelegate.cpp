#include "app/AppDelegate.h"

#include "app/MainFlutterWindow.h"

namespace quillbeam {

AppDelegate::AppDelegate(Platform& platform, LaunchedUploads uploads)
    : platform_(platform),
      uploads_(uploads),
      logger_(platform.systemLog, "io.quillbeam.app.macos", "AppDelegate"),
      tasks_(platform.dispatch.main()) {
  logger_.info("🎯 AppDelegate initializing...");
  platform_.windowSystem.setApplicationDelegate(this);
  logger_.info("🎯 AppDelegate initialized");
}

AppDelegate::~AppDelegate() { platform_.windowSystem.setApplicationDelegate(nullptr); }

void AppDelegate::applicationWillFinishLaunching() { logger_.info("🚀 macOS app will finish launching"); }

void AppDelegate::applicationDidFinishLaunching(ResumeUploads resume) {
  logger_.info("🚀 macOS app did finish launching");
  tasks_.start(launchUploads(platform_, uploads_, resume));
  // The desktop's service needs no permission, and tells nobody what became of a notification.
  logger_.info("ℹ️ macOS notifications disabled via config");
}

AppDelegate::Reopened AppDelegate::applicationShouldHandleReopen() {
  if (mainWindow_ == nullptr || !mainWindow_->isOnScreen()) {
    logger_.info("⚠️ Could not find main window to show");
    return Reopened::nothingToShow;
  }
  mainWindow_->show();
  mainWindow_->windowControl().sendDockIconClicked();
  return Reopened::mainWindowShown;
}

ApplicationDelegate::Termination AppDelegate::applicationShouldTerminateAfterLastWindowClosed() {
  logger_.info("🎯 applicationShouldTerminateAfterLastWindowClosed called - preventing termination");
  return Termination::stay;
}

bool AppDelegate::applicationSupportsSecureRestorableState() {
  logger_.info("🎯 applicationSupportsSecureRestorableState called");
  return true;
}

void AppDelegate::showNativeNotification(const std::string& title, const std::string& body) {
  UserNotification notification{.title = title, .body = body, .sound = NotificationSound::standard};
  tasks_.start(platform_.userNotifications.add(std::move(notification)), [this](const Result<void>& added) {
    if (added) return logger_.info("✅ Native notification sent successfully");
    logger_.error("❌ Native notification error: " + added.error().fullDescription());
  });
}

}  // namespace quillbeam
