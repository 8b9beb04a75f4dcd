#include "platform/linux/qt/QtMainWindow.h"

#include <QCloseEvent>
#include <QQmlError>
#include <QQuickItem>
#include <QQuickView>

namespace quillbeam {

namespace {

constexpr QSize smallestSize(420, 220);

Error cannotLoad(const QQuickView& view) {
  QString reasons;
  for (const QQmlError& error : view.errors()) reasons += error.toString() + " ";
  return Error(WindowSystemError::cannotMakeWindow)
      .withUnderlying(Error(CommonError::malformedData).withDescription(reasons.trimmed().toStdString()));
}

}  // namespace

class QtMainWindow::View final : public QQuickView {
 public:
  explicit View(Delegate& delegate) : delegate_(delegate) {
    setTitle("Quillbeam");
    setResizeMode(QQuickView::SizeRootObjectToView);
    resize(smallestSize);
    setMinimumSize(smallestSize);
    setSource(QUrl("qrc:/quillbeam/MainWindow.qml"));
  }

 protected:
  bool event(QEvent* event) override {
    if (event->type() != QEvent::Close) return QQuickView::event(event);
    event->ignore();
    delegate_.windowCloseRequested();
    return true;
  }

 private:
  Delegate& delegate_;
};

Result<std::unique_ptr<MainWindow>> QtMainWindow::create(Delegate& delegate) {
  auto view = std::make_unique<View>(delegate);
  if (view->status() != QQuickView::Ready) return cannotLoad(*view);
  return std::unique_ptr<MainWindow>(new QtMainWindow(std::move(view)));
}

QtMainWindow::QtMainWindow(std::unique_ptr<View> view) : view_(std::move(view)) {}
QtMainWindow::~QtMainWindow() = default;

void QtMainWindow::makeKeyAndOrderFront() {
  view_->setWindowStates(view_->windowStates() & ~Qt::WindowMinimized);
  view_->show();
  view_->raise();
  view_->requestActivate();
}

void QtMainWindow::orderOut() { view_->hide(); }

bool QtMainWindow::isVisible() const { return view_->isVisible(); }

void QtMainWindow::setUserInterfaceState(UserInterfaceState state) {
  view_->rootObject()->setProperty("userInterfaceConnected", state == UserInterfaceState::connected);
}

}  // namespace quillbeam
