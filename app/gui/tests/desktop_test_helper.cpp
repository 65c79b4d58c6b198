// Stand-ins for the application's session test, and the island's pictures.
//   desktop_test_helper portal       the desktop's settings portal: takes
//                                   org.freedesktop.portal.Desktop, answers ReadAll and announces
//                                   each "namespace key u:1" or "namespace key b:true" line read
//                                   from standard input as a SettingChanged
//   desktop_test_helper fullscreen   a window that asks the window manager for full screen
//   desktop_test_helper grab         another client holding Ctrl+Alt+P on the root window
//   desktop_test_helper shortcuts    a GlobalShortcuts portal: prints each call it hears and
//                                    presses the bound shortcut for each "press" line read
//   desktop_test_helper notifications
//                                    a notification server: prints "summary|body" for each
//                                    notice and clicks notice N for each "invoke N" line read
//   desktop_test_helper host PORT    a window (its _NET_WM_PID this process) whose child listens
//                                    on PORT, as a terminal's shell would
//   desktop_test_helper render DIR   the island's states and the tray's counts as PNGs, drawn
//                                   offscreen at four times their size from the same painting
//                                   code the window uses, under a top panel
#include <QDBusConnection>
#include <QProcess>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QObject>
#include <QPainter>
#include <QRasterWindow>
#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <xcb/xcb.h>

#include "app/gui/fonts.h"
#include "app/gui/island_window.h"
#include "app/gui/tray_badge.h"
#include "app/gui/tests/fake_shortcuts_portal.h"

using SettingsMap = QMap<QString, QVariantMap>;
Q_DECLARE_METATYPE(SettingsMap)

class Portal : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
  Q_PROPERTY(uint version READ version)

 public:
  uint version() const { return 2; }

  void set(const QString& nameSpace, const QString& key, const QVariant& value) {
    settings_[nameSpace][key] = value;
    Q_EMIT SettingChanged(nameSpace, key, QDBusVariant(value));
  }

 public Q_SLOTS:
  SettingsMap ReadAll(const QStringList& namespaces) {
    SettingsMap answer;
    for (const auto& name : namespaces) {
      if (settings_.contains(name)) answer[name] = settings_[name];
    }
    return answer;
  }

 Q_SIGNALS:
  void SettingChanged(const QString& nameSpace, const QString& key, const QDBusVariant& value);

 private:
  SettingsMap settings_;
};

class Notifications : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public Q_SLOTS:
  uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body, const QStringList&,
              const QVariantMap&, int) {
    std::printf("%s|%s\n", qPrintable(summary), qPrintable(body));
    std::fflush(stdout);
    return ++last_;
  }
  QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }

 Q_SIGNALS:
  void ActionInvoked(uint id, const QString& action);
  void NotificationClosed(uint id, uint reason);

 private:
  uint last_ = 0;
};

class Blank : public QRasterWindow {
 protected:
  void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(QRect(QPoint(0, 0), size()), QColor(30, 60, 90)); }
};

namespace {

using namespace std::chrono_literals;
using tidewatch::NotchIslandAgentState;

constexpr int scale = 4;
constexpr double panelHeight = 28;

QImage canvas(double width, double height) {
  QImage image(static_cast<int>(width * scale), static_cast<int>(height * scale), QImage::Format_ARGB32_Premultiplied);
  image.setDevicePixelRatio(scale);
  QPainter painter(&image);
  // A desktop under a top panel, as the island meets it.
  QLinearGradient wallpaper(0, 0, width, height);
  wallpaper.setColorAt(0, QColor(70, 96, 128));
  wallpaper.setColorAt(1, QColor(120, 140, 160));
  painter.fillRect(QRectF(0, 0, width, height), wallpaper);
  painter.fillRect(QRectF(0, 0, width, panelHeight), QColor(36, 36, 40));
  return image;
}

// One island, its wings presented with the states given and the clock moved on by `after`.
void renderIsland(const QString& path, NotchIslandAgentState codex, NotchIslandAgentState claude, bool contrast,
                  std::chrono::milliseconds after, std::optional<NotchIslandAgentState> thenClaude = std::nullopt,
                  std::chrono::milliseconds thenAfter = 0ms) {
  auto executor = std::make_shared<tidewatch::ManualMainExecutor>();
  const auto now = [executor] { return executor->now(); };
  tidewatch::NotchIslandWing left({tidewatch::NotchIslandSide::left, executor, now, {}});
  tidewatch::NotchIslandWing right({tidewatch::NotchIslandSide::right, executor, now, {}});
  tidewatch::CorallineAccessibilityOptions options;
  options.increaseContrast = contrast;
  left.present({0, 0, 70, 32}, 12, codex, options);
  right.present({0, 0, 70, 32}, 12, claude, options);
  executor->advance(after);
  if (thenClaude) {
    right.present({0, 0, 70, 32}, 12, *thenClaude, options);
    executor->advance(thenAfter);
  }
  const double width = 360;
  QImage image = canvas(width, panelHeight + 44);
  QPainter painter(&image);
  painter.translate((width - tidewatch::IslandWindow::islandSize().width()) / 2, panelHeight);
  tidewatch::paintIsland(painter, left, right, executor->now());
  painter.end();
  image.save(path);
}

void renderTray(const QString& path) {
  const double width = 220;
  QImage image = canvas(width, panelHeight + 12);
  QPainter painter(&image);
  struct Icon {
    const char* svg;
    tidewatch::AgentIndicatorCounts counts;
  };
  const Icon icons[] = {{":/tidewatch/tray-dark.svg", {0, 0}},
                        {":/tidewatch/tray-dark.svg", {2, 1}},
                        {":/tidewatch/tray-dark.svg", {0, 3}},
                        {":/tidewatch/tray-dark.svg", {12, 0}}};
  double x = 16;
  for (const auto& icon : icons) {
    // Drawn at the tray's 22 pixels and shown at that size, as a panel shows it.
    const QImage drawn = tidewatch::badgedTrayImage(QString::fromLatin1(icon.svg), icon.counts, 22 * scale);
    painter.drawImage(QRectF(x, 3, 22, 22), drawn);
    x += 50;
  }
  painter.end();
  image.save(path);
}

int render(const QString& folder) {
  const NotchIslandAgentState none{0, false, 0};
  for (const bool contrast : {false, true}) {
    const QString suffix = contrast ? QStringLiteral("-contrast") : QString();
    // Two Codex sessions and one Claude Code session at work, the wave under way.
    renderIsland(folder + "/island-working" + suffix + ".png", {2, true, 0}, {1, true, 0}, contrast, 1000ms);
    // The Claude Code session ends: its checkmark, with Codex still at work.
    renderIsland(folder + "/island-completion" + suffix + ".png", {1, true, 0}, {1, true, 0}, contrast, 1000ms,
                 NotchIslandAgentState{0, false, 1}, 300ms);
  }
  // A second Claude Code session arrives: the count halfway through its roll.
  renderIsland(folder + "/island-count-rolling.png", none, {1, false, 0}, false, 1000ms,
               NotchIslandAgentState{2, false, 0}, 90ms);
  renderTray(folder + "/tray-agent-counts.png");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "render") ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  QGuiApplication application(argc, argv);
  if (mode == "render" && argc > 2) {
    tidewatch::registerApplicationFonts();
    return render(QString::fromLocal8Bit(argv[2]));
  }
  if (mode == "fullscreen") {
    Blank window;
    window.setTitle(QStringLiteral("full screen test"));
    window.showFullScreen();
    return QGuiApplication::exec();
  }
  if (mode == "grab") {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    auto* c = x11->connection();
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    // The keycode of "p" on the server's map, found by its keysym.
    const auto* setup = xcb_get_setup(c);
    const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    auto* mapping = xcb_get_keyboard_mapping_reply(c, xcb_get_keyboard_mapping(c, setup->min_keycode, count), nullptr);
    const auto* keysyms = xcb_get_keyboard_mapping_keysyms(mapping);
    xcb_keycode_t keycode = 0;
    for (int i = 0; i < count * mapping->keysyms_per_keycode && !keycode; ++i) {
      if (keysyms[i] == 'p') keycode = static_cast<xcb_keycode_t>(setup->min_keycode + i / mapping->keysyms_per_keycode);
    }
    std::free(mapping);
    xcb_grab_key(c, 0, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    xcb_flush(c);
    std::printf("grabbed\n");
    std::fflush(stdout);
    return QGuiApplication::exec();
  }
  if (mode == "host" && argc > 2) {
    Blank window;
    window.setTitle(QStringLiteral("focus test host"));
    window.resize(300, 200);
    window.show();
    QProcess shell;
    shell.start(QStringLiteral("python3"), {QStringLiteral("-m"), QStringLiteral("http.server"), QString::fromLatin1(argv[2]),
                                            QStringLiteral("--bind"), QStringLiteral("127.0.0.1")});
    const int status = QGuiApplication::exec();
    shell.kill();
    shell.waitForFinished(2000);
    return status;
  }
  if (mode == "notifications") {
    Notifications server;
    auto bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) ||
        !bus.registerService(QStringLiteral("org.freedesktop.Notifications"))) {
      std::fprintf(stderr, "desktop_test_helper: could not take org.freedesktop.Notifications\n");
      return 1;
    }
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &server, [&] {
      std::string word;
      uint id = 0;
      if (!(std::cin >> word >> id)) return QCoreApplication::quit();
      Q_EMIT server.ActionInvoked(id, QStringLiteral("default"));
    });
    return QGuiApplication::exec();
  }
  if (mode == "shortcuts") {
    tidewatch::testing::FakeShortcutsPortal portal(QDBusConnection::sessionBus());
    portal.onCall = [](const QString& call) {
      std::printf("%s\n", qPrintable(call));
      std::fflush(stdout);
    };
    if (!portal.serve()) {
      std::fprintf(stderr, "desktop_test_helper: could not take org.freedesktop.portal.Desktop\n");
      return 1;
    }
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] {
      std::string word;
      if (!(std::cin >> word)) return QCoreApplication::quit();
      if (word == "press") portal.press();
    });
    return QGuiApplication::exec();
  }
  if (mode != "portal") {
    std::fprintf(stderr,
                 "usage: desktop_test_helper portal | fullscreen | grab | shortcuts | host PORT | notifications | render "
                 "DIR\n");
    return 2;
  }
  qDBusRegisterMetaType<SettingsMap>();
  qRegisterMetaType<QDBusVariant>();
  Portal portal;
  auto bus = QDBusConnection::sessionBus();
  if (!bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                          QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                              QDBusConnection::ExportAllProperties) ||
      !bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"))) {
    std::fprintf(stderr, "desktop_test_helper: could not take org.freedesktop.portal.Desktop\n");
    return 1;
  }
  QSocketNotifier input(0, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, &portal, [&] {
    std::string nameSpace, key, value;
    if (!(std::cin >> nameSpace >> key >> value)) return QCoreApplication::quit();
    const QString text = QString::fromStdString(value.substr(2));
    const QVariant typed = value.rfind("b:", 0) == 0 ? QVariant(text == QLatin1String("true")) : QVariant(text.toUInt());
    portal.set(QString::fromStdString(nameSpace), QString::fromStdString(key), typed);
  });
  return QGuiApplication::exec();
}

#include "desktop_test_helper.moc"
