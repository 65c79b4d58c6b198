// Update checks on Linux: an appcast read over HTTPS, weekly once onboarding is through or when
// asked. It only ever tells: a newer version and its page, or that this one is current, or why
// it could not tell. Nothing is downloaded or installed.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "process_core/defaults_store.h"

class QNetworkAccessManager;
class QNetworkReply;

namespace tidewatch {

namespace UpdateFeed {

// A feed is a few kilobytes; anything far larger is not one.
inline constexpr qint64 largestFeedBytes = 1 << 20;

struct Release {
  std::string version;  // as people read it: "0.2.0"
  std::string link;     // the page telling of it
  friend bool operator==(const Release&, const Release&) = default;
};

// The newest release an appcast lists (an RSS channel whose items carry
// sparkle:shortVersionString or sparkle:version, on the item or its enclosure, and a link);
// a message when the document is no such feed.
std::variant<Release, std::string> newest(const QByteArray& appcast);

// Dotted numeric versions, a missing part counting 0; -1, 0 or 1.
int compare(const std::string& a, const std::string& b);

}  // namespace UpdateFeed

class UpdateChecker : public QObject {
  Q_OBJECT

 public:
  static constexpr std::chrono::seconds interval{604800};  // a week
  static constexpr std::string_view automaticKey = "updates.automaticallyChecks";
  static constexpr std::string_view lastCheckKey = "updates.lastCheckedAt";

  struct Dependencies {
    QUrl feed;
    std::string currentVersion;
    DefaultsStore defaults{""};
    std::function<std::chrono::system_clock::time_point()> now;
    std::chrono::milliseconds timeout{15000};
  };

  enum class State { idle, checking, upToDate, available, failed };

  explicit UpdateChecker(Dependencies dependencies, QObject* parent = nullptr);
  ~UpdateChecker() override;

  // The project's feed, or the one TIDEWATCH_UPDATE_FEED names.
  static QUrl defaultFeed();

  bool automaticallyChecks() const;
  // Stored; turning it on checks at once when the last check is a week old.
  void setAutomaticallyChecks(bool on);
  void checkNow();

  State state() const { return state_; }
  // What the settings say of it.
  QString statusText() const;
  const std::optional<UpdateFeed::Release>& available() const { return available_; }

 Q_SIGNALS:
  void changed();

 private:
  void schedule();
  void finish(QNetworkReply* reply);
  void fail(QString why);

  Dependencies d_;
  QNetworkAccessManager* network_ = nullptr;
  QNetworkReply* reply_ = nullptr;
  QTimer due_;
  State state_ = State::idle;
  QString failure_;
  std::optional<UpdateFeed::Release> available_;
};

}  // namespace tidewatch
