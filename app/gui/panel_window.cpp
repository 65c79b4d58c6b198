#include "app/gui/panel_window.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlEngine>
#include <QScreen>
#include <QSurfaceFormat>

#include "app/gui/icon_provider.h"
#include "app/gui/panel_bridge.h"
#include "app/qt/settings_model.h"
#include "app/qt/tidewatch_view_model.h"
#include "coralline_kit/notch_placement_resolver.h"

namespace tidewatch {

PanelWindow::PanelWindow(TidewatchViewModel& viewModel, PanelBridge& bridge, SettingsModel& settings,
                         QObject* parent)
    : QObject(parent), viewModel_(viewModel), bridge_(bridge), settings_(settings) {}

PanelWindow::~PanelWindow() {
  if (!view_) return;
  // A window being destroyed still says it lost activation; by then it is no QQuickView any more.
  QObject::disconnect(view_, nullptr, this, nullptr);
  delete view_;
}

QQuickView& PanelWindow::ensureView() {
  if (view_) return *view_;
  view_ = new QQuickView();
  view_->setTitle(QStringLiteral("Tidewatch"));
  QSurfaceFormat format = view_->format();
  format.setAlphaBufferSize(8);
  view_->setFormat(format);
  view_->setColor(Qt::transparent);
  view_->setResizeMode(QQuickView::SizeRootObjectToView);
  view_->resize(700, 480);
  applyFlags();
  view_->engine()->addImageProvider(QStringLiteral("icon"), new IconProvider);
  view_->setInitialProperties({{QStringLiteral("viewModel"), QVariant::fromValue(static_cast<QObject*>(&viewModel_))},
                               {QStringLiteral("panel"), QVariant::fromValue(static_cast<QObject*>(&bridge_))},
                               {QStringLiteral("settings"), QVariant::fromValue(static_cast<QObject*>(&settings_))}});
  view_->setSource(QUrl(QStringLiteral("qrc:/tidewatch/qml/Panel.qml")));
  if (view_->status() == QQuickView::Error) qFatal("tidewatch: the panel could not be loaded");
  for (const auto& error : view_->errors()) qWarning("tidewatch: %s", qPrintable(error.toString()));
  view_->installEventFilter(this);
  connect(view_, &QWindow::activeChanged, this, [this] {
    const bool active = view_->isActive();
    if (wasActive_ && !active && !windowMode_ && onFocusLost) onFocusLost();
    wasActive_ = active;
  });
  return *view_;
}

void PanelWindow::applyFlags() {
  if (!view_) return;
  if (windowMode_) {
    view_->setFlags(Qt::Window);
    view_->setColor(QColor(0x17, 0x18, 0x1c));
  } else {
    // A tool window stays out of the taskbar; above the others, without a frame.
    view_->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    view_->setColor(Qt::transparent);
  }
}

void PanelWindow::setWindowMode(bool on) {
  if (windowMode_ == on) return;
  windowMode_ = on;
  const bool shown = view_ && view_->isVisible();
  if (shown) view_->hide();
  applyFlags();
  if (shown) view_->show();
}

void PanelWindow::showAsWindow() {
  auto& view = ensureView();
  view.show();
  view.raise();
  view.requestActivate();
}

PanelSurface PanelWindow::surface() {
  return PanelSurface{
      .isVisible = [this] { return view_ && view_->isVisible(); },
      .setFrame =
          [this](const ScreenRect& frame) {
            auto& view = ensureView();
            if (windowMode_) {
              // An ordinary window opens in the middle of the screen and stays where it is put.
              if (view.isVisible()) return;
              const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
              view.setPosition(screen.center() - QPoint(view.width() / 2, view.height() / 2));
              return;
            }
            // The controller places in bottom-left points; X11 counts from the top of the desktop.
            const QRect desktop = QGuiApplication::primaryScreen()->virtualGeometry();
            const ScreenRect topLeft = ScreenCoordinates::toTopLeftOrigin(frame, desktop.y() + desktop.height());
            view.setGeometry(QRect(static_cast<int>(topLeft.x), static_cast<int>(topLeft.y),
                                           static_cast<int>(topLeft.width), static_cast<int>(topLeft.height)));
          },
      .orderFront =
          [this] {
            auto& view = ensureView();
            view.show();
            view.raise();
          },
      .makeKey = [this] { ensureView().requestActivate(); },
      .orderOut =
          [this] {
            if (view_) view_->hide();
          },
  };
}

bool PanelWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == view_) {
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
      if (onEscape) onEscape();
      return true;
    }
    if (event->type() == QEvent::Close && windowMode_ && onCloseRequested) {
      onCloseRequested();
      return false;
    }
  }
  return QObject::eventFilter(watched, event);
}

}  // namespace tidewatch
