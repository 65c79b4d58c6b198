// Qt Quick Test for the panel's views: the QML files as the application loads them, with the
// icon provider, over a real view model and settings model whose system operations are fakes.
#include <QQmlContext>
#include <QQmlEngine>
#include <QTemporaryDir>
#include <QtQuickTest>

#include <memory>

#include "app/gui/icon_provider.h"
#include "app/qt/qt_main_executor.h"
#include "app/qt/settings_model.h"
#include "app/qt/tidewatch_view_model.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {

// A view model over two listeners, a server and a pool of three workers, whose stops are recorded,
// never sent.
class Fixture : public QObject {
  Q_OBJECT
  Q_PROPERTY(QStringList signalled READ signalled NOTIFY signalledChanged)

 public:
  Q_INVOKABLE QObject* viewModel() {
    auto executor = std::make_shared<QtMainExecutor>();
    TidewatchViewModel::Dependencies d;
    d.executor = executor;
    d.defaults = DefaultsStore(directory_.filePath(QStringLiteral("defaults.json")).toStdString());
    d.context = {4242, 1000};
    d.kill = [this](const KillRequest& request) {
      record("kill " + std::to_string(request.pid));
      return KillOutcome{KillOutcome::Signaled{}};
    };
    d.forceKill = [this](const ForceKillRequest& request) {
      record("force " + std::to_string(request.pid));
      return KillOutcome{KillOutcome::SignaledForce{}};
    };
    d.stopPool = [this](const StopPoolRequest&) {
      record("pool");
      return StopPoolOutcome{StopPoolOutcome::NoActionableTarget{}};
    };
    d.stopVisible = [this](const StopVisibleRequest&) {
      record("visible");
      return StopVisibleOutcome{1, 0, 1, 0};
    };
    d.runInBackground = [](std::function<void()> work) { work(); };
    d.now = [] { return Date(std::chrono::seconds(1'800'000'000)); };
    auto* model = new TidewatchViewModel(d, this);
    executors_.push_back(executor);

    using testing::Row;
    ScanResult result;
    result.scannedAt = Date(std::chrono::seconds(1'800'000'000));
    result.listeners = {Row(101, 8000).path("/opt/app/server"), Row(102, 5173).path("/opt/web/worker").pool(3)};
    for (auto& listener : result.listeners) {
      listener.process.uid = 1000;  // the user's own, so stops are offered
      listener.process.sameUser = true;
    }
    result.listeners[1].parentIdentity = ProcessIdentity{100, 1'700'000'000, 0};  // the pool's supervisor
    model->prepareForMonitoring();
    model->apply({result, ScanFrame::Trigger::initial, FilterCategory::all, {}});
    return model;
  }

  // The settings over the same store as the view model, wired as the application wires them.
  Q_INVOKABLE QObject* settingsFor(QObject* viewModel) {
    auto* model = qobject_cast<TidewatchViewModel*>(viewModel);
    auto* settings = new SettingsModel(
        SettingsModel::Parts{.defaults = DefaultsStore(directory_.filePath(QStringLiteral("defaults.json")).toStdString()),
                             .shortcut = nullptr,
                             .shortcutProfile = nullptr,
                             .launchAtLogin = nullptr,
                             .connections = nullptr,
                             .retryReceiver = {},
                             .version = "test",
                             .operatingSystem = "test"},
        this);
    connect(settings, &SettingsModel::displaySettingsChanged, model, [model] { model->reloadDisplaySettings(); });
    return settings;
  }

  QStringList signalled() const { return signalled_; }

 Q_SIGNALS:
  void signalledChanged();

 private:
  void record(const std::string& what) {
    signalled_ << QString::fromStdString(what);
    Q_EMIT signalledChanged();
  }

  QTemporaryDir directory_;
  std::vector<std::shared_ptr<QtMainExecutor>> executors_;
  QStringList signalled_;
};

class Setup : public QObject {
  Q_OBJECT

 public Q_SLOTS:
  void qmlEngineAvailable(QQmlEngine* engine) {
    engine->addImageProvider(QStringLiteral("icon"), new IconProvider);
    engine->rootContext()->setContextProperty(QStringLiteral("fixture"), &fixture_);
  }

 private:
  Fixture fixture_;
};

}  // namespace tidewatch

QUICK_TEST_MAIN_WITH_SETUP(tidewatch_views, tidewatch::Setup)

#include "qml_test_main.moc"
