#include "app/qt/settings_model.h"

#include <QDateTime>
#include <QLocale>

#include "app/display_settings.h"
#include "app/panel_views.h"
#include "app/qt/tidewatch_view_model.h"

namespace tidewatch {

namespace {

QString text(std::string_view value) { return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size())); }

// The setting key of each field the row can show, by the name the view uses.
bool RowVisibleFields::*fieldNamed(const QString& name) {
  static const std::pair<const char*, bool RowVisibleFields::*> fields[] = {
      {"port", &RowVisibleFields::port},       {"cpu", &RowVisibleFields::cpu},
      {"memory", &RowVisibleFields::memory},   {"path", &RowVisibleFields::path},
      {"host", &RowVisibleFields::host},       {"project", &RowVisibleFields::project},
      {"uptime", &RowVisibleFields::uptime},   {"power", &RowVisibleFields::power},
      {"powerLabels", &RowVisibleFields::powerLabels}};
  for (const auto& [field, member] : fields) {
    if (name == QLatin1String(field)) return member;
  }
  return nullptr;
}

}  // namespace

SettingsModel::SettingsModel(Parts parts, QObject* parent) : QObject(parent), parts_(std::move(parts)) {
  if (parts_.launchAtLogin) launchAtLogin_ = parts_.launchAtLogin->reconcileLaunchAtLogin();
  if (parts_.updates) connect(parts_.updates, &UpdateChecker::changed, this, &SettingsModel::changed);
  // A desktop that answers later (the portal) settles the shortcut after the view asked.
  if (parts_.shortcut) parts_.shortcut->onChange = [this] { Q_EMIT changed(); };
}

SettingsModel::~SettingsModel() {
  if (parts_.shortcut) parts_.shortcut->onChange = nullptr;
}

QString SettingsModel::updatesNote() const {
  if (!parts_.updates) return QString::fromUtf8(updatesText.data(), updatesText.size());
  return parts_.updates->statusText();
}

QString SettingsModel::updateLink() const {
  const auto* updates = parts_.updates;
  return updates && updates->available() ? QString::fromStdString(updates->available()->link) : QString();
}

bool SettingsModel::canCheckForUpdates() const {
  return parts_.updates && parts_.updates->state() != UpdateChecker::State::checking;
}

void SettingsModel::checkForUpdates() {
  if (parts_.updates) parts_.updates->checkNow();
}

QVariantMap SettingsModel::fields() const {
  return TidewatchViewModel::fieldsMap(DisplaySettings::visibleFields(parts_.defaults));
}

QString SettingsModel::rowDensity() const { return text(DisplaySettings::rawValue(DisplaySettings::rowDensity(parts_.defaults))); }
QString SettingsModel::defaultFilter() const { return text(rawValue(DisplaySettings::defaultFilter(parts_.defaults))); }
QString SettingsModel::batteryMode() const { return text(rawValue(DisplaySettings::batteryMode(parts_.defaults))); }
bool SettingsModel::autoCloseAfterOpening() const { return DisplaySettings::autoCloseAfterOpening(parts_.defaults); }
bool SettingsModel::showAgentActivity() const { return DisplaySettings::showAgentActivity(parts_.defaults); }
bool SettingsModel::notifyAgentSessions() const { return DisplaySettings::notifyAgentSessions(parts_.defaults); }

bool SettingsModel::shortcutEnabled() const { return parts_.shortcut && parts_.shortcut->isEnabled(); }
QString SettingsModel::shortcutText() const {
  return parts_.shortcut ? QString::fromStdString(parts_.shortcut->displayText()) : QString();
}
bool SettingsModel::shortcutPending() const { return parts_.shortcut && parts_.shortcut->isPending(); }
QString SettingsModel::shortcutError() const {
  return parts_.shortcut && parts_.shortcut->registrationError()
             ? QString::fromStdString(*parts_.shortcut->registrationError())
             : QString();
}

QString SettingsModel::launchAtLoginCaption() const {
  return launchAtLogin_.caption ? QString::fromStdString(*launchAtLogin_.caption) : QString();
}

QVariantList SettingsModel::connections() const {
  QVariantList cards;
  if (!parts_.connections) return cards;
  const auto formatTime = [](Date at) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(at.time_since_epoch()).count();
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(seconds).time(), QLocale::ShortFormat).toStdString();
  };
  for (AgentKind provider : allAgentKinds) {
    const auto connection = parts_.connections->connection(provider);
    QStringList actions;
    for (const auto action : parts_.connections->actions(connection)) {
      actions << text(AgentProviderConnectionStore::word(action));
    }
    const auto testLine = parts_.connections->testResultLine(provider);
    cards << QVariantMap{{QStringLiteral("provider"), text(rawValue(provider))},
                         {QStringLiteral("name"), text(AgentProviderConnectionStore::settingsName(provider))},
                         {QStringLiteral("caption"), QString::fromStdString(parts_.connections->caption(connection, formatTime))},
                         {QStringLiteral("actions"), actions},
                         {QStringLiteral("testLine"), testLine ? QString::fromStdString(*testLine) : QString()}};
  }
  return cards;
}

QString SettingsModel::connectNotice() const {
  return parts_.connections && parts_.connections->actionNotice()
             ? QString::fromStdString(*parts_.connections->actionNotice())
             : QString();
}

QString SettingsModel::receiverFailureLine() const {
  const auto line = parts_.connections ? parts_.connections->receiverFailureLine() : std::nullopt;
  return line ? QString::fromStdString(*line) : QString();
}

QString SettingsModel::privacyNote() const { return text(PanelTexts::connectionsPromise); }

QString SettingsModel::supportMailURL() const {
  return QString::fromStdString(PanelTexts::supportMailURL(supportAddress, parts_.version, parts_.operatingSystem));
}

void SettingsModel::setField(const QString& name, bool on) {
  const auto member = fieldNamed(name);
  if (!member) return;
  auto fields = DisplaySettings::visibleFields(parts_.defaults);
  fields.*member = on;
  DisplaySettings::setVisibleFields(parts_.defaults, fields);
  wrote();
}

void SettingsModel::setRowDensity(const QString& raw) {
  if (const auto density = DisplaySettings::rowDensityFromRaw(raw.toStdString())) {
    DisplaySettings::setRowDensity(parts_.defaults, *density);
    wrote();
  }
}

void SettingsModel::setDefaultFilter(const QString& raw) {
  if (const auto setting = defaultFilterSettingFromRaw(raw.toStdString())) {
    DisplaySettings::setDefaultFilter(parts_.defaults, *setting);
    wrote();
  }
}

void SettingsModel::setBatteryMode(const QString& raw) {
  if (const auto mode = DisplaySettings::batteryModeFromRaw(raw.toStdString())) {
    DisplaySettings::setBatteryMode(parts_.defaults, *mode);
    wrote();
  }
}

void SettingsModel::setAutoCloseAfterOpening(bool on) {
  DisplaySettings::setAutoCloseAfterOpening(parts_.defaults, on);
  wrote();
}

void SettingsModel::setShowAgentActivity(bool on) {
  DisplaySettings::setShowAgentActivity(parts_.defaults, on);
  wrote();
}

void SettingsModel::setNotifyAgentSessions(bool on) {
  DisplaySettings::setNotifyAgentSessions(parts_.defaults, on);
  Q_EMIT changed();
}

void SettingsModel::setShortcutEnabled(bool on) {
  if (parts_.shortcut) parts_.shortcut->setEnabled(on);
  Q_EMIT changed();
}

void SettingsModel::recordShortcut(const QString& key, bool ctrl, bool alt, bool super, bool shift) {
  if (!parts_.shortcut) return;
  GlobalShortcutPreference preference;
  preference.key = key.toLower().toStdString();
  // On Linux Ctrl stands where command stands, Alt for option, Super for control.
  if (ctrl) preference.modifiers.insert(GlobalShortcutModifier::command);
  if (alt) preference.modifiers.insert(GlobalShortcutModifier::option);
  if (super) preference.modifiers.insert(GlobalShortcutModifier::control);
  if (shift) preference.modifiers.insert(GlobalShortcutModifier::shift);
  parts_.shortcut->update(preference);
  Q_EMIT changed();
}

void SettingsModel::setLaunchAtLogin(bool on) {
  if (!parts_.launchAtLogin) return;
  launchAtLogin_ = parts_.launchAtLogin->applyLaunchAtLoginToggle(on);
  Q_EMIT changed();
}

void SettingsModel::connectionAction(const QString& provider, const QString& action) {
  if (!parts_.connections) return;
  const auto kind = agentKindFromRaw(provider.toStdString());
  if (!kind) return;
  using Action = AgentProviderConnectionStore::Action;
  for (const Action candidate : {Action::connect, Action::repair, Action::testRelay, Action::disconnect, Action::retry}) {
    if (action != text(AgentProviderConnectionStore::word(candidate))) continue;
    switch (candidate) {
      case Action::connect:
      case Action::repair: parts_.connections->connect(*kind); break;
      case Action::testRelay: parts_.connections->testRelay(*kind); break;
      case Action::disconnect: parts_.connections->disconnect(*kind); break;
      case Action::retry: retryReceiver(); break;
    }
  }
  Q_EMIT changed();
}

void SettingsModel::retryReceiver() {
  if (parts_.retryReceiver) parts_.retryReceiver();
  Q_EMIT changed();
}

void SettingsModel::wrote() {
  Q_EMIT changed();
  Q_EMIT displaySettingsChanged();
}

}  // namespace tidewatch
