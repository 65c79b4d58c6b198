#include "app/qt/update_checker.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

QByteArray appcast(const std::string& items) {
  return QByteArray::fromStdString(
      R"(<?xml version="1.0"?><rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">)"
      "<channel><title>Tidewatch</title>" +
      items + "</channel></rss>");
}

TEST(UpdateFeed, FindsTheNewestListedVersionAndItsPage) {
  struct Case {
    const char* name;
    QByteArray feed;
    std::variant<UpdateFeed::Release, std::string> expected;
  };
  const Case cases[] = {
      {"short versions on items, newest anywhere",
       appcast("<item><sparkle:shortVersionString>0.2.0</sparkle:shortVersionString><link>https://t.dev/0.2</link></item>"
               "<item><sparkle:shortVersionString>0.10.1</sparkle:shortVersionString><link>https://t.dev/0.10</link></item>"
               "<item><sparkle:shortVersionString>0.9</sparkle:shortVersionString></item>"),
       UpdateFeed::Release{"0.10.1", "https://t.dev/0.10"}},
      {"versions on the enclosure, its url for want of a link",
       appcast(R"(<item><enclosure url="https://t.dev/t.tar.gz" sparkle:version="3" sparkle:shortVersionString="1.2"/></item>)"),
       UpdateFeed::Release{"1.2", "https://t.dev/t.tar.gz"}},
      {"not XML", QByteArray("{\"version\": 2}"), std::string()},
      {"cut off", appcast("<item><sparkle:version>1</sparkle:version>").left(80), std::string()},
      {"no channel", QByteArray("<rss/>"), std::string("The update feed has no channel.")},
      {"no usable version", appcast("<item><sparkle:version>beta</sparkle:version></item>"),
       std::string("The update feed lists no version.")},
  };
  for (const auto& c : cases) {
    const auto got = UpdateFeed::newest(c.feed);
    if (const auto* release = std::get_if<UpdateFeed::Release>(&c.expected)) {
      ASSERT_TRUE(std::holds_alternative<UpdateFeed::Release>(got)) << c.name << ": " << std::get<std::string>(got);
      EXPECT_EQ(std::get<UpdateFeed::Release>(got), *release) << c.name;
    } else {
      ASSERT_TRUE(std::holds_alternative<std::string>(got)) << c.name;
      const auto& expected = std::get<std::string>(c.expected);
      if (!expected.empty()) {
        EXPECT_EQ(std::get<std::string>(got), expected) << c.name;
      }
    }
  }
  EXPECT_EQ(UpdateFeed::newest(QByteArray(UpdateFeed::largestFeedBytes + 1, ' ')),
            (std::variant<UpdateFeed::Release, std::string>(std::string("The update feed is too large."))));
}

TEST(UpdateFeed, ComparesDottedVersionsByNumber) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"0.10.0", "0.9.9", 1}, {"1.0", "1.0.0", 0}, {"1.0.1", "1.0", 1}, {"2", "10", -1}, {"0.1.0", "0.1.0", 0}};
  for (const auto& [a, b, expected] : cases) EXPECT_EQ(UpdateFeed::compare(a, b), expected) << a << " " << b;
}

// A one-page web server on 127.0.0.1 that answers every request with the same bytes, or never.
class FeedServer {
 public:
  explicit FeedServer(std::optional<QByteArray> body) : body_(std::move(body)) {
    server_.listen(QHostAddress::LocalHost);
    QObject::connect(&server_, &QTcpServer::newConnection, [this] {
      while (auto* socket = server_.nextPendingConnection()) {
        if (!body_) continue;  // silent: holds the connection and says nothing
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, body = *body_] {
          socket->readAll();
          socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/rss+xml\r\nConnection: close\r\nContent-Length: " +
                        QByteArray::number(body.size()) + "\r\n\r\n" + body);
          socket->disconnectFromHost();
        });
      }
    });
  }
  QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(server_.serverPort())); }

 private:
  std::optional<QByteArray> body_;
  QTcpServer server_;
};

class UpdateCheckerTest : public ::testing::Test {
 protected:
  std::unique_ptr<UpdateChecker> checker(const QUrl& feed) {
    return std::make_unique<UpdateChecker>(UpdateChecker::Dependencies{
        .feed = feed,
        .currentVersion = "0.1.0",
        .defaults = DefaultsStore(directory.path() + "/defaults.json"),
        .now = [this] { return now; },
        .timeout = std::chrono::milliseconds(400),
    });
  }
  // Checks once and waits for the answer.
  void check(UpdateChecker& updates) {
    QSignalSpy changed(&updates, &UpdateChecker::changed);
    updates.checkNow();
    while (updates.state() == UpdateChecker::State::checking) ASSERT_TRUE(changed.wait(3000));
  }

  testing::TemporaryDirectory directory;
  std::chrono::system_clock::time_point now{std::chrono::hours(24 * 20000)};
};

TEST_F(UpdateCheckerTest, TellsWhatTheServedFeedSaysAndNeverHangs) {
  struct Case {
    const char* name;
    std::optional<QByteArray> served;
    UpdateChecker::State state;
    const char* status;
  };
  const Case cases[] = {
      {"newer",
       appcast("<item><sparkle:shortVersionString>0.2.0</sparkle:shortVersionString><link>https://t.dev/0.2</link></item>"),
       UpdateChecker::State::available, "Tidewatch 0.2.0 is available (this is 0.1.0)."},
      {"equal", appcast("<item><sparkle:shortVersionString>0.1.0</sparkle:shortVersionString></item>"),
       UpdateChecker::State::upToDate, "Tidewatch 0.1.0 is the newest version."},
      {"malformed", QByteArray("<rss><channel><item>"), UpdateChecker::State::failed, nullptr},
      {"silent", std::nullopt, UpdateChecker::State::failed, "The update server didn\u2019t answer."},
  };
  for (const auto& c : cases) {
    FeedServer server(c.served);
    auto updates = checker(server.url());
    check(*updates);
    EXPECT_EQ(updates->state(), c.state) << c.name << ": " << updates->statusText().toStdString();
    if (c.status) {
      EXPECT_EQ(updates->statusText().toStdString(), c.status) << c.name;
    }
  }
}

TEST_F(UpdateCheckerTest, ReadsOnlyOverHttpsAwayFromThisMachine) {
  auto updates = checker(QUrl(QStringLiteral("http://example.com/appcast.xml")));
  updates->checkNow();
  EXPECT_EQ(updates->state(), UpdateChecker::State::failed);
  EXPECT_EQ(updates->statusText().toStdString(), "The update feed must be read over HTTPS.");
}

TEST_F(UpdateCheckerTest, ChecksWeeklyOnlyOnceTurnedOn) {
  FeedServer server(appcast("<item><sparkle:shortVersionString>0.1.0</sparkle:shortVersionString></item>"));
  auto updates = checker(server.url());
  EXPECT_FALSE(updates->automaticallyChecks());
  QSignalSpy changed(updates.get(), &UpdateChecker::changed);
  EXPECT_FALSE(changed.wait(300)) << "off: nothing is checked";
  updates->setAutomaticallyChecks(true);  // never checked: due at once
  while (updates->state() != UpdateChecker::State::upToDate) ASSERT_TRUE(changed.wait(3000));
  // Checked just now: the next one is a week away, so a new checker waits too.
  auto later = checker(server.url());
  QSignalSpy quiet(later.get(), &UpdateChecker::changed);
  EXPECT_FALSE(quiet.wait(300));
  EXPECT_EQ(later->state(), UpdateChecker::State::idle);
  EXPECT_EQ(later->statusText().toStdString(), "Checks weekly and always asks before installing.");
}

}  // namespace
}  // namespace tidewatch
