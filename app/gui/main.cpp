// tidewatch-app: the tray application. The front executable `tidewatch` hands over to it.
#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QQuickWindow>
#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/application_launch.h"
#include "app/gui/bus_service.h"
#include "app/gui/fonts.h"
#include "app/gui/tray_application.h"
#include "app/single_instance.h"

namespace {

int signalPipe[2] = {-1, -1};
tidewatch::TrayApplication* runningApplication = nullptr;

void forwardSignal(int number) {
  const char byte = static_cast<char>(number);
  // Nothing more can be done from a handler when the pipe is full; the first byte is enough.
  [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
}

// SIGINT, SIGTERM and SIGHUP (the end of the terminal or the session) quit through the event
// loop, so the ordinary end runs: the hook server stopped, its socket removed.
void quitOnSignals(QObject* owner) {
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, owner);
  QObject::connect(notifier, &QSocketNotifier::activated, owner, [] {
    char byte = 0;
    [[maybe_unused]] const auto got = ::read(signalPipe[0], &byte, 1);
    QCoreApplication::quit();
  });
  struct sigaction action {};
  action.sa_handler = forwardSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  namespace Launch = tidewatch::ApplicationLaunch;
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (const auto request = Launch::request(arguments)) {
    std::fputs((*request == Launch::Request::help ? Launch::helpText() : Launch::versionText()).c_str(), stdout);
    return 0;
  }
  const char* display = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  if (!display && !wayland) {
    std::fputs("tidewatch: no graphical session (neither DISPLAY nor WAYLAND_DISPLAY is set); "
               "run `tidewatch scan` for the report in this terminal\n",
               stderr);
    return 1;
  }
  // Only X11 lets the app place and raise its own windows: on a Wayland session it runs on
  // XWayland, unless the user chose a platform.
  if (!std::getenv("QT_QPA_PLATFORM") && wayland && display) ::setenv("QT_QPA_PLATFORM", "xcb", 1);

  // The panel is flat colour and text: the software renderer draws it at a fraction of the memory
  // a GL context takes. QT_QUICK_BACKEND still chooses another.
  if (!std::getenv("QT_QUICK_BACKEND")) QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

  QApplication application(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);
  QApplication::setApplicationName(QStringLiteral("Tidewatch"));
  QGuiApplication::setDesktopFileName(QStringLiteral("com.tidewatch.app"));

  namespace Single = tidewatch::SingleInstance;
  const QString busName = QString::fromUtf8(Single::busName.data(), Single::busName.size());
  const QString path = QString::fromUtf8(Single::objectPath.data(), Single::objectPath.size());
  QDBusConnection bus = QDBusConnection::sessionBus();
  tidewatch::BusService service;
  const auto outcome = Single::settle({
      .claimName =
          [&] {
            if (!bus.isConnected() || !bus.interface()) return Single::Claim::noBus;
            bus.registerObject(path, &service, QDBusConnection::ExportScriptableSlots);
            const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = bus.interface()->registerService(
                busName, QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
            if (!reply.isValid()) return Single::Claim::noBus;
            return reply.value() == QDBusConnectionInterface::ServiceRegistered ? Single::Claim::acquired
                                                                                : Single::Claim::heldByAnother;
          },
      .askHolderToOpenPanel =
          [&] {
            QDBusInterface running(busName, path, busName, bus);
            running.setTimeout(2000);
            return running.isValid() && running.call(QStringLiteral("OpenPanel")).type() != QDBusMessage::ErrorMessage;
          },
  });
  if (!outcome.message.empty()) std::fprintf(stderr, "%s\n", outcome.message.c_str());
  if (outcome.kind == Single::Outcome::Kind::handedOver) return 0;
  if (outcome.kind == Single::Outcome::Kind::unreachable) return 1;

  tidewatch::registerApplicationFonts();
  tidewatch::TrayApplication tray;
  QObject::connect(&service, &tidewatch::BusService::openPanelRequested, &tray, [&tray] { tray.openPanel(); });
  service.listedPorts = [&tray] { return tray.listedPorts(); };
  service.islandState = [&tray] { return tray.islandState(); };
  service.shortcutState = [&tray] { return tray.shortcutState(); };
  service.agentSessions = [&tray] { return tray.agentSessions(); };
  // The session manager's end and every quit come through here.
  QObject::connect(&application, &QCoreApplication::aboutToQuit, &tray, [&tray] { tray.shutDown(); });
  quitOnSignals(&tray);
  // When the X server goes away with the session, Qt ends the process from inside the event loop
  // with exit(): the hook server is still stopped and its socket removed.
  runningApplication = &tray;
  std::atexit([] {
    if (runningApplication) runningApplication->shutDown();
  });
  tray.start();
  const int status = QApplication::exec();
  runningApplication = nullptr;
  return status;
}
