// What the panel's layout binds to beside the view model: the reveal, which surface shows, and
// the few actions of the panel itself (quit, the first-run choices).
#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

#include "app/launch_at_login.h"
#include "app/qt/app_delegate.h"

namespace tidewatch {

class PanelBridge : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool revealed READ revealed NOTIFY revealChanged)
  Q_PROPERTY(int revealDuration READ revealDuration NOTIFY revealChanged)
  Q_PROPERTY(QString revealCurve READ revealCurve NOTIFY revealChanged)
  Q_PROPERTY(QString surface READ surface NOTIFY surfaceChanged)
  Q_PROPERTY(QString offerMessage READ offerMessage NOTIFY surfaceChanged)
  Q_PROPERTY(bool windowMode READ windowMode NOTIFY windowModeChanged)

 public:
  explicit PanelBridge(AppDelegate& delegate, QObject* parent = nullptr);

  bool revealed() const;
  int revealDuration() const;
  QString revealCurve() const;
  // "offer", "walkthrough" or "list".
  QString surface() const;
  QString offerMessage() const { return offerMessage_; }
  bool windowMode() const { return windowMode_; }
  void setWindowMode(bool on);

  Q_INVOKABLE void quit();
  // Escape when nothing in the panel took it: closes the panel (not an ordinary window).
  Q_INVOKABLE void dismissNow();
  // In the default browser; the panel closes after it when the user asked for that.
  Q_INVOKABLE void openURL(const QString& url);
  Q_INVOKABLE void copy(const QString& text);
  Q_INVOKABLE void replayWalkthrough();
  Q_INVOKABLE void enableAtLogin();
  Q_INVOKABLE void declineOffer();
  Q_INVOKABLE void finishWalkthrough();
  // After a change of the reveal made elsewhere.
  void notifyReveal() { Q_EMIT revealChanged(); }
  LaunchAtLoginController& launchAtLogin() { return launchAtLogin_; }

 Q_SIGNALS:
  void revealChanged();
  void surfaceChanged();
  void windowModeChanged();
  // Escape reached the window; the views close what is on top first.
  void escapePressed();
  // The panel opened: the list takes the keyboard.
  void shown();

 private:
  void gateChanged();

  AppDelegate& delegate_;
  LaunchAtLoginController launchAtLogin_;
  QString offerMessage_;
  bool windowMode_ = false;
  bool replayingWalkthrough_ = false;
};

}  // namespace tidewatch
