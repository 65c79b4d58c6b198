#include "app/qt/update_checker.h"

#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QXmlStreamReader>

#include <algorithm>
#include <sstream>
#include <vector>

namespace tidewatch {

namespace UpdateFeed {

namespace {

constexpr auto sparkle = "http://www.andymatuschak.org/xml-namespaces/sparkle";

std::vector<long> parts(const std::string& version) {
  std::vector<long> numbers;
  std::stringstream stream(version);
  std::string part;
  while (std::getline(stream, part, '.')) numbers.push_back(std::strtol(part.c_str(), nullptr, 10));
  return numbers;
}

bool isVersion(const std::string& text) {
  return !text.empty() && std::isdigit(static_cast<unsigned char>(text.front())) &&
         std::all_of(text.begin(), text.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)) || c == '.'; });
}

}  // namespace

int compare(const std::string& a, const std::string& b) {
  auto x = parts(a);
  auto y = parts(b);
  x.resize(std::max(x.size(), y.size()));
  y.resize(x.size());
  return x < y ? -1 : (y < x ? 1 : 0);
}

std::variant<Release, std::string> newest(const QByteArray& appcast) {
  if (appcast.size() > largestFeedBytes) return std::string("The update feed is too large.");
  QXmlStreamReader xml(appcast);
  std::optional<Release> best;
  bool sawChannel = false;
  std::optional<Release> item;
  while (!xml.atEnd()) {
    xml.readNext();
    if (xml.isStartElement()) {
      const auto name = xml.name();
      if (name == QLatin1String("channel")) sawChannel = true;
      if (name == QLatin1String("item")) item = Release{};
      if (!item) continue;
      const bool inSparkle = xml.namespaceUri() == QLatin1String(sparkle);
      if (name == QLatin1String("enclosure")) {
        const auto attributes = xml.attributes();
        const auto shortVersion = attributes.value(QLatin1String(sparkle), QLatin1String("shortVersionString"));
        const auto version = attributes.value(QLatin1String(sparkle), QLatin1String("version"));
        if (item->version.empty()) item->version = (shortVersion.isEmpty() ? version : shortVersion).toString().toStdString();
        if (item->link.empty()) item->link = attributes.value(QLatin1String("url")).toString().toStdString();
      } else if (inSparkle && name == QLatin1String("shortVersionString")) {
        item->version = xml.readElementText().trimmed().toStdString();
      } else if (inSparkle && name == QLatin1String("version") && item->version.empty()) {
        item->version = xml.readElementText().trimmed().toStdString();
      } else if (name == QLatin1String("link") && xml.namespaceUri().isEmpty()) {
        // The page beats the download: nothing here is ever downloaded.
        item->link = xml.readElementText().trimmed().toStdString();
      }
    } else if (xml.isEndElement() && xml.name() == QLatin1String("item") && item) {
      if (isVersion(item->version) && (!best || compare(item->version, best->version) > 0)) best = item;
      item.reset();
    }
  }
  if (xml.hasError()) return "The update feed isn't readable XML (" + xml.errorString().toStdString() + ").";
  if (!sawChannel) return std::string("The update feed has no channel.");
  if (!best) return std::string("The update feed lists no version.");
  return *best;
}

}  // namespace UpdateFeed

UpdateChecker::UpdateChecker(Dependencies dependencies, QObject* parent)
    : QObject(parent), d_(std::move(dependencies)), network_(new QNetworkAccessManager(this)) {
  due_.setSingleShot(true);
  connect(&due_, &QTimer::timeout, this, [this] { checkNow(); });
  schedule();
}

UpdateChecker::~UpdateChecker() {
  if (reply_) reply_->abort();
}

QUrl UpdateChecker::defaultFeed() {
  // A mirror or a test server may stand in for the project's own feed.
  if (const QByteArray chosen = qgetenv("TIDEWATCH_UPDATE_FEED"); !chosen.isEmpty()) return QUrl(QString::fromUtf8(chosen));
  return QUrl(QStringLiteral("https://tidewatch.dev/appcast.xml"));
}

bool UpdateChecker::automaticallyChecks() const {
  return d_.defaults.boolForKey(std::string(automaticKey));
}

void UpdateChecker::setAutomaticallyChecks(bool on) {
  d_.defaults.set(std::string(automaticKey), on);
  schedule();
}

void UpdateChecker::schedule() {
  due_.stop();
  if (!automaticallyChecks()) return;
  // Seconds since the epoch of the last check; never checked counts as a week ago.
  std::chrono::milliseconds wait{0};
  if (const auto last = d_.defaults.valueForKey(std::string(lastCheckKey)); last && last->is_number()) {
    const auto at = std::chrono::duration<double>(last->get<double>());
    const auto since = std::chrono::duration<double>(d_.now().time_since_epoch()) - at;
    wait = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(interval) - since);
  }
  // Timers hold at most about 24 days: a week always fits.
  due_.start(static_cast<int>(std::clamp<long long>(wait.count(), 0, std::chrono::milliseconds(interval).count())));
}

void UpdateChecker::checkNow() {
  if (reply_) return;
  const QUrl& feed = d_.feed;
  const bool loopback = QHostAddress(feed.host()).isLoopback() || feed.host() == QLatin1String("localhost");
  if (feed.scheme() != QLatin1String("https") && !(feed.scheme() == QLatin1String("http") && loopback)) {
    return fail(QStringLiteral("The update feed must be read over HTTPS."));
  }
  state_ = State::checking;
  Q_EMIT changed();
  QNetworkRequest request(feed);
  request.setTransferTimeout(static_cast<int>(d_.timeout.count()));
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  reply_ = network_->get(request);
  connect(reply_, &QNetworkReply::finished, this, [this, reply = reply_] { finish(reply); });
}

void UpdateChecker::finish(QNetworkReply* reply) {
  reply->deleteLater();
  reply_ = nullptr;
  const auto seconds = std::chrono::duration<double>(d_.now().time_since_epoch()).count();
  d_.defaults.set(std::string(lastCheckKey), seconds);
  schedule();
  if (reply->error() == QNetworkReply::OperationCanceledError || reply->error() == QNetworkReply::TimeoutError) {
    return fail(QStringLiteral("The update server didn\u2019t answer."));
  }
  if (reply->error() != QNetworkReply::NoError) {
    return fail(QStringLiteral("Couldn\u2019t reach the update server (%1).").arg(reply->errorString()));
  }
  const auto result = UpdateFeed::newest(reply->read(UpdateFeed::largestFeedBytes + 1));
  if (const auto* why = std::get_if<std::string>(&result)) return fail(QString::fromStdString(*why));
  const auto& release = std::get<UpdateFeed::Release>(result);
  if (UpdateFeed::compare(release.version, d_.currentVersion) > 0) {
    available_ = release;
    state_ = State::available;
  } else {
    available_.reset();
    state_ = State::upToDate;
  }
  Q_EMIT changed();
}

void UpdateChecker::fail(QString why) {
  failure_ = std::move(why);
  state_ = State::failed;
  Q_EMIT changed();
}

QString UpdateChecker::statusText() const {
  const QString current = QString::fromStdString(d_.currentVersion);
  switch (state_) {
    case State::idle: return QStringLiteral("Checks weekly and always asks before installing.");
    case State::checking: return QStringLiteral("Checking for updates\u2026");
    case State::upToDate: return QStringLiteral("Tidewatch %1 is the newest version.").arg(current);
    case State::available:
      return QStringLiteral("Tidewatch %1 is available (this is %2).")
          .arg(QString::fromStdString(available_ ? available_->version : std::string()), current);
    case State::failed: return failure_;
  }
  return {};
}

}  // namespace tidewatch
