// A StatusNotifierItem watcher for tests: it owns org.kde.StatusNotifierWatcher on the session
// bus, says a host is registered (so Qt picks StatusNotifierItem over XEmbed) and prints the bus
// name of every item that registers, one a line, for the test to call Activate on.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

#include <cstdio>

class Watcher : public QObject, protected QDBusContext {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
  Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
  Q_PROPERTY(int ProtocolVersion READ protocolVersion)
  Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

 public:
  bool isHostRegistered() const { return true; }
  int protocolVersion() const { return 0; }
  QStringList items() const { return items_; }

 public Q_SLOTS:
  void RegisterStatusNotifierItem(const QString& serviceOrPath) {
    // An item may name itself by a path; then its bus name is the caller's.
    const QString service = serviceOrPath.startsWith(QLatin1Char('/')) ? message().service() : serviceOrPath;
    items_ << service;
    std::printf("%s\n", qPrintable(service));
    std::fflush(stdout);
    Q_EMIT StatusNotifierItemRegistered(service);
  }
  void RegisterStatusNotifierHost(const QString&) {}

 Q_SIGNALS:
  void StatusNotifierItemRegistered(const QString& service);
  void StatusNotifierHostRegistered();

 private:
  QStringList items_;
};

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  Watcher watcher;
  auto bus = QDBusConnection::sessionBus();
  if (!bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &watcher,
                          QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                              QDBusConnection::ExportAllProperties) ||
      !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"))) {
    std::fprintf(stderr, "sni_test_watcher: could not take org.kde.StatusNotifierWatcher\n");
    return 1;
  }
  return QCoreApplication::exec();
}

#include "sni_test_watcher.moc"
