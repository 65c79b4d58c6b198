// The running application's face on the session bus: a later start calls OpenPanel and leaves;
// a script may ask which ports the panel lists now ("port process" each), and what the island
// shows (its disposition, then each shown wing's words), how the global shortcut stands, and
// the agent sessions of the inventory (the JSON document `tidewatch agents` prints).
#pragma once

#include <QObject>
#include <QStringList>

#include <functional>

namespace tidewatch {

class BusService : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "com.tidewatch.app")

 public:
  using QObject::QObject;

 public Q_SLOTS:
  Q_SCRIPTABLE void OpenPanel() { Q_EMIT openPanelRequested(); }
  Q_SCRIPTABLE QStringList ListedPorts() { return listedPorts ? listedPorts() : QStringList(); }
  Q_SCRIPTABLE QStringList IslandState() { return islandState ? islandState() : QStringList(); }
  Q_SCRIPTABLE QStringList ShortcutState() { return shortcutState ? shortcutState() : QStringList(); }
  Q_SCRIPTABLE QString AgentSessions() { return agentSessions ? agentSessions() : QString(); }

 public:
  std::function<QStringList()> listedPorts;
  std::function<QStringList()> islandState;
  std::function<QStringList()> shortcutState;
  std::function<QString()> agentSessions;

 Q_SIGNALS:
  void openPanelRequested();
};

}  // namespace tidewatch
