#include "platform/linux/qt/QtWindowSystem.h"

#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <QEvent>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QSessionManager>
#include <QSocketNotifier>
#include <QThread>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "platform/Places.h"
#include "platform/linux/qt/QtMainWindow.h"

namespace quillbeam {

namespace {

constexpr std::chrono::seconds longestOrderlyEnd{25};
SystemLog* messageLog = nullptr;

/// What QGuiApplication refers to as long as it lives.
class CommandLine {
 public:
  explicit CommandLine(std::string platform) : platform_(std::move(platform)) {}
  int& count() { return count_; }
  char** arguments() { return arguments_.data(); }

 private:
  std::string program_ = "quillbeam";
  std::string option_ = "-platform";
  std::string platform_;
  int count_ = 3;
  std::array<char*, 4> arguments_{program_.data(), option_.data(), platform_.data(), nullptr};
};

/// Hands the end of the session on instead of ending the loop.
class Application final : public QGuiApplication {
 public:
  Application(CommandLine& line, std::function<void()> quitRequested)
      : QGuiApplication(line.count(), line.arguments()), quitRequested_(std::move(quitRequested)) {}

 protected:
  bool event(QEvent* event) override {
    if (event->type() != QEvent::Quit) return QGuiApplication::event(event);
    quitRequested_();
    return true;
  }

 private:
  std::function<void()> quitRequested_;
};

}  // namespace

class QtWindowSystem::Parts {
 public:
  Parts(SystemLog& log, Options options)
      : logger(log, bundleIdentifier, "QtWindowSystem"),
        mainDescriptor(options.mainDescriptor),
        drainMain(std::move(options.drainMain)),
        commandLine(std::move(options.platform)),
        application(commandLine, [this] { end(); }),
        mainReady(mainDescriptor, QSocketNotifier::Read) {
    QGuiApplication::setQuitOnLastWindowClosed(false);
    QGuiApplication::setApplicationDisplayName("Quillbeam");
    QGuiApplication::setDesktopFileName(bundleIdentifier.data());
    QObject::connect(&mainReady, &QSocketNotifier::activated, [this] { drainMain(); });
    QObject::connect(&application, &QGuiApplication::lastWindowClosed, [this] { lastWindowClosed(); });
    QObject::connect(&application, &QGuiApplication::saveStateRequest,
                     [this](QSessionManager& session) { saveState(session); });
  }

  void lastWindowClosed() {
    using Termination = ApplicationDelegate::Termination;
    if (delegate && delegate->applicationShouldTerminateAfterLastWindowClosed() == Termination::go) end();
  }

  void saveState(QSessionManager& session) {
    const bool restores = delegate && delegate->applicationSupportsSecureRestorableState();
    session.setRestartHint(restores ? QSessionManager::RestartIfRunning : QSessionManager::RestartNever);
  }

  void end() {
    if (ended) ended();
  }

  bool hasLostItsDisplay() const {
    const auto* x11 = application.nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr && x11->connection() != nullptr && ::xcb_connection_has_error(x11->connection()) != 0;
  }

  /// Qt is about to end the process: what the application still has to do is done first, without touching Qt.
  [[noreturn]] void endWithoutDisplay() {
    logger.error("The display went away; the process ends in an orderly way");
    end();
    pollfd ready{mainDescriptor, POLLIN, 0};
    const auto deadline = std::chrono::steady_clock::now() + longestOrderlyEnd;
    while (!stopped && std::chrono::steady_clock::now() < deadline) {
      ::poll(&ready, 1, 100);
      drainMain();
    }
    ::_exit(EXIT_FAILURE);
  }

  const Logger logger;
  const int mainDescriptor;
  const std::function<void()> drainMain;
  std::function<void()> ended;
  ApplicationDelegate* delegate = nullptr;
  std::atomic<bool> stopped = false;
  CommandLine commandLine;
  Application application;
  QSocketNotifier mainReady;

  /// Whose loop runs; an exit in the middle of it is Qt's.
  static inline Parts* running = nullptr;

  static void logMessage(QtMsgType type, const QMessageLogContext& context, const QString& message);
};

/// Qt's own messages belong into the system's log. When its connection to the display breaks, it says so and calls
/// exit: the message is the last moment at which the process is still whole.
void QtWindowSystem::Parts::logMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (messageLog == nullptr) return;
  const LogLevel level = type == QtDebugMsg || type == QtInfoMsg ? LogLevel::debug : LogLevel::error;
  if (messageLog->isEnabled(level)) messageLog->write(level, bundleIdentifier, "Qt", message.toStdString());
  const bool isMain =
      QCoreApplication::instance() != nullptr && QThread::currentThread() == QCoreApplication::instance()->thread();
  if (!isMain || running == nullptr || !running->hasLostItsDisplay()) return;
  std::exchange(running, nullptr)->endWithoutDisplay();
}

QtWindowSystem::QtWindowSystem(SystemLog& log, Options options) {
  messageLog = &log;
  qInstallMessageHandler(Parts::logMessage);
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  parts_ = std::make_unique<Parts>(log, std::move(options));
  // Destroying what other threads use would help nobody; an unfinished recording is repaired at the next start.
  std::atexit([] {
    if (Parts::running != nullptr) ::_exit(EXIT_FAILURE);
  });
}

QtWindowSystem::~QtWindowSystem() {
  parts_.reset();
  qInstallMessageHandler(nullptr);
  messageLog = nullptr;
}

void QtWindowSystem::setApplicationDelegate(ApplicationDelegate* delegate) { parts_->delegate = delegate; }

Result<std::unique_ptr<MainWindow>> QtWindowSystem::makeMainWindow(MainWindow::Delegate& delegate) {
  return QtMainWindow::create(delegate);
}

void QtWindowSystem::run() {
  Parts::running = parts_.get();
  while (!parts_->stopped) QGuiApplication::exec();
  Parts::running = nullptr;
}

void QtWindowSystem::stop() {
  parts_->stopped = true;
  QMetaObject::invokeMethod(&parts_->application, [] { QCoreApplication::exit(); }, Qt::QueuedConnection);
}

void QtWindowSystem::onEnd(std::function<void()> ended) { parts_->ended = std::move(ended); }

}  // namespace quillbeam
