// What the settings view binds to: the display settings, agent activity, the shortcut, opening at
// login and the agents' connections, each read from its owner and written back through it. Every
// write ends in `changed`, on which the application re-reads what it shows and which loop runs.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

#include "app/global_shortcut.h"
#include "app/launch_at_login.h"
#include "app/qt/update_checker.h"
#include "hooks/agent_provider_connection_store.h"
#include "process_core/defaults_store.h"

namespace tidewatch {

class SettingsModel : public QObject {
  Q_OBJECT
  Q_PROPERTY(QVariantMap fields READ fields NOTIFY changed)
  Q_PROPERTY(QString rowDensity READ rowDensity NOTIFY changed)
  Q_PROPERTY(QString defaultFilter READ defaultFilter NOTIFY changed)
  Q_PROPERTY(QString batteryMode READ batteryMode NOTIFY changed)
  Q_PROPERTY(bool autoCloseAfterOpening READ autoCloseAfterOpening NOTIFY changed)
  Q_PROPERTY(bool showAgentActivity READ showAgentActivity NOTIFY changed)
  Q_PROPERTY(bool notifyAgentSessions READ notifyAgentSessions NOTIFY changed)
  Q_PROPERTY(bool shortcutEnabled READ shortcutEnabled NOTIFY changed)
  Q_PROPERTY(QString shortcutText READ shortcutText NOTIFY changed)
  Q_PROPERTY(QString shortcutError READ shortcutError NOTIFY changed)
  // Asked of the desktop, which has not answered yet (it may be asking the user).
  Q_PROPERTY(bool shortcutPending READ shortcutPending NOTIFY changed)
  Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY changed)
  Q_PROPERTY(QString launchAtLoginCaption READ launchAtLoginCaption NOTIFY changed)
  Q_PROPERTY(QVariantList connections READ connections NOTIFY changed)
  Q_PROPERTY(QString connectNotice READ connectNotice NOTIFY changed)
  Q_PROPERTY(QString receiverFailureLine READ receiverFailureLine NOTIFY changed)
  Q_PROPERTY(QString privacyNote READ privacyNote CONSTANT)
  Q_PROPERTY(QString updatesNote READ updatesNote NOTIFY changed)
  Q_PROPERTY(QString updateLink READ updateLink NOTIFY changed)
  Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY changed)
  Q_PROPERTY(QString version READ version CONSTANT)
  Q_PROPERTY(QString supportMailURL READ supportMailURL CONSTANT)

 public:
  struct Parts {
    DefaultsStore defaults{""};
    GlobalShortcutManager* shortcut = nullptr;
    const GlobalShortcutProfile* shortcutProfile = nullptr;
    LaunchAtLoginController* launchAtLogin = nullptr;
    AgentProviderConnectionStore* connections = nullptr;
    // Asks the hook server to start again after a failure.
    std::function<void()> retryReceiver;
    std::string version;
    std::string operatingSystem;
    // Absent where no update feed is read.
    UpdateChecker* updates = nullptr;
  };

  static constexpr std::string_view updatesText =
      "Update checks aren\u2019t available in this build; new versions come with your copy of the source.";
  static constexpr std::string_view supportAddress = "feedback@tidewatch.app";

  explicit SettingsModel(Parts parts, QObject* parent = nullptr);
  ~SettingsModel() override;
  SettingsModel(const SettingsModel&) = delete;
  SettingsModel& operator=(const SettingsModel&) = delete;

  QVariantMap fields() const;
  QString rowDensity() const;
  QString defaultFilter() const;
  QString batteryMode() const;
  bool autoCloseAfterOpening() const;
  bool showAgentActivity() const;
  bool notifyAgentSessions() const;
  bool shortcutEnabled() const;
  QString shortcutText() const;
  QString shortcutError() const;
  bool shortcutPending() const;
  bool launchAtLogin() const { return launchAtLogin_.toggleOn; }
  QString launchAtLoginCaption() const;
  QVariantList connections() const;
  QString connectNotice() const;
  QString receiverFailureLine() const;
  QString privacyNote() const;
  QString updatesNote() const;
  // The page of a newer version, once a check found one.
  QString updateLink() const;
  bool canCheckForUpdates() const;
  Q_INVOKABLE void checkForUpdates();
  QString version() const { return QString::fromStdString(parts_.version); }
  QString supportMailURL() const;

  Q_INVOKABLE void setField(const QString& name, bool on);
  Q_INVOKABLE void setRowDensity(const QString& raw);
  Q_INVOKABLE void setDefaultFilter(const QString& raw);
  Q_INVOKABLE void setBatteryMode(const QString& raw);
  Q_INVOKABLE void setAutoCloseAfterOpening(bool on);
  Q_INVOKABLE void setShowAgentActivity(bool on);
  Q_INVOKABLE void setNotifyAgentSessions(bool on);
  Q_INVOKABLE void setShortcutEnabled(bool on);
  // A recorded combination: the key's character and the modifiers held (Ctrl, Alt, Super, Shift).
  Q_INVOKABLE void recordShortcut(const QString& key, bool ctrl, bool alt, bool super, bool shift);
  Q_INVOKABLE void setLaunchAtLogin(bool on);
  // "Connect", "Repair", "Test relay", "Disconnect" or "Retry" for the provider's raw value.
  Q_INVOKABLE void connectionAction(const QString& provider, const QString& action);
  Q_INVOKABLE void retryReceiver();

  // Someone else changed what this shows (the connection store, the shortcut manager).
  void refresh() { Q_EMIT changed(); }

 Q_SIGNALS:
  void changed();
  // A setting that decides what the panel shows or which loop runs was written.
  void displaySettingsChanged();

 private:
  void wrote();

  Parts parts_;
  LaunchAtLoginReconciler::Presentation launchAtLogin_;
};

}  // namespace tidewatch
