// Desktop notices through org.freedesktop.Notifications on the session bus. A click on one (its
// default action) names the session it told of; nothing is shown where no server runs.
#pragma once

#include <QObject>

#include <functional>
#include <map>
#include <string>

#include "app/agent_notifications.h"

namespace tidewatch {

class DesktopNotifier : public QObject {
  Q_OBJECT

 public:
  DesktopNotifier();
  void show(const AgentNotice& notice);
  std::function<void(const std::string& sessionID)> onActivated;

 private Q_SLOTS:
  void actionInvoked(uint id, const QString& action);
  void notificationClosed(uint id, uint reason);

 private:
  std::map<uint, std::string> shown_;
};

}  // namespace tidewatch
