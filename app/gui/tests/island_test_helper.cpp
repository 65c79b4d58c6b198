// Two stand-ins for the island's session test.
//   island_test_helper portal       the desktop's settings portal: takes
//                                   org.freedesktop.portal.Desktop, answers ReadAll and announces
//                                   each "namespace key u:1" or "namespace key b:true" line read
//                                   from standard input as a SettingChanged
//   island_test_helper fullscreen   a window that asks the window manager for full screen
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QObject>
#include <QPainter>
#include <QRasterWindow>
#include <QSocketNotifier>

#include <cstdio>
#include <iostream>
#include <string>

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

class Blank : public QRasterWindow {
 protected:
  void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(QRect(QPoint(0, 0), size()), QColor(30, 60, 90)); }
};

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  QGuiApplication application(argc, argv);
  if (mode == "fullscreen") {
    Blank window;
    window.setTitle(QStringLiteral("full screen test"));
    window.showFullScreen();
    return QGuiApplication::exec();
  }
  if (mode != "portal") {
    std::fprintf(stderr, "usage: island_test_helper portal|fullscreen\n");
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
    std::fprintf(stderr, "island_test_helper: could not take org.freedesktop.portal.Desktop\n");
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

#include "island_test_helper.moc"
