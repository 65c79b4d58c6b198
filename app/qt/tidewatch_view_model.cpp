#include "app/qt/tidewatch_view_model.h"

#include <unistd.h>

#include <QDateTime>
#include <QLocale>

#include <algorithm>
#include <set>

#include "app/panel_actions.h"
#include "app/panel_views.h"
#include "tidewatch_kit/listener_enrichment.h"
#include "tidewatch_kit/listener_terminator.h"
#include "tidewatch_kit/row_labels.h"
#include "tidewatch_kit/service_classifier.h"

namespace tidewatch {
namespace {

QString text(std::string_view value) { return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size())); }

// The roles of a port row: raw values and, beside them, the texts the row shows.
const std::vector<QByteArray> listenerRoles{
    "rowID",        "port",         "processName",  "pid",          "classification", "classificationLabel",
    "bindScope",    "bindBadge",    "isHidden",     "poolSize",     "agentProvider",  "hostName",
    "projectName",  "projectPath",  "executablePath", "cpuPercent", "cpuText",        "activity",
    "memoryBytes",  "memoryText",   "uptimeText",   "focusLabel",   "openableURL",    "canKill",
    "canStopPool",  "tooltip",      "activityLabel", "detailLine"};

// The roles of an agent row, with the section it stands in.
const std::vector<QByteArray> agentRoles{
    "sessionID",   "section",         "sectionTitle", "provider",        "providerName", "state",
    "stateText",   "explanation",     "hostName",     "projectName",     "location",     "evidence",
    "pid",         "portDetail",      "listenerCount", "stopUnavailable", "canStop",      "lastEventAt",
    "detailLine"};

QVariant optionalText(const std::optional<std::string>& value) { return value ? QVariant(text(*value)) : QVariant(); }

}  // namespace

TidewatchViewModel::TidewatchViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), d_(std::move(dependencies)), listenerRows_(listenerRoles, this), agentRows_(agentRoles, this) {
  readDisplaySettings();
}

TidewatchViewModel::~TidewatchViewModel() = default;

// ---- Frames ---------------------------------------------------------------------------------

void TidewatchViewModel::prepareForMonitoring() {
  state_ = State::loading;
  result_.reset();
  activityByID_.clear();
  activityLevels_.clear();
  cpuPercentByID_.clear();
  focusLabelByID_.clear();
  setShowSystem(d_.defaults.boolForKey(std::string(showSystemRowsKey)));
  readDisplaySettings();
  panelModeResolvedThisOpen_ = false;
  setAgentFilter("all");
  setExpandedAgentSessionID({});
  setExactScope(std::nullopt);
  Q_EMIT stateChanged();
  Q_EMIT activityByIDChanged();
  Q_EMIT cpuPercentByIDChanged();
  Q_EMIT focusLabelByIDChanged();
  Q_EMIT displayChanged();
  rebuildListenerRows();
}

void TidewatchViewModel::apply(const ScanFrame& frame) {
  const ScanResult* result = frame.scanned();
  if (!result) {
    focusLabelByID_.clear();
    state_ = State::failed;
    Q_EMIT focusLabelByIDChanged();
    Q_EMIT stateChanged();
    return;
  }
  if (frame.startingFilter) setFilter(text(rawValue(*frame.startingFilter)));

  activityByID_.clear();
  activityLevels_.clear();
  cpuPercentByID_.clear();
  for (const auto& [id, activity] : frame.activity) {
    activityByID_.insert(QString::fromStdString(id), text(rawValue(activity.level)));
    activityLevels_[id] = activity.level;
    if (activity.cpuPercent) cpuPercentByID_.insert(QString::fromStdString(id), *activity.cpuPercent);
  }
  refreshFocusLabels(*result);
  refreshExactAgentScope(*result);
  if (frame.startingFilter && !panelModeResolvedThisOpen_) {
    panelModeResolvedThisOpen_ = true;
    const bool hasAgents = result->agentPresence.totalCount() >= 1 || !inventory_.currentSessions().empty();
    std::optional<PanelMode> lastMode;
    if (const auto stored = d_.defaults.stringForKey(std::string(lastUsedPanelModeKey))) {
      if (*stored == "ports") lastMode = PanelMode::ports;
      if (*stored == "agents") lastMode = PanelMode::agents;
    }
    setPanelMode(PanelModeResolver::resolve(DisplaySettings::defaultFilter(d_.defaults), hasAgents, lastMode));
  }
  // Last, so that views see the filter and mode already set.
  result_ = *result;
  state_ = State::loaded;
  Q_EMIT activityByIDChanged();
  Q_EMIT cpuPercentByIDChanged();
  Q_EMIT stateChanged();
  rebuildListenerRows();
}

void TidewatchViewModel::refreshFocusLabels(const ScanResult& result) {
  const auto generation = ++focusGeneration_;
  std::vector<std::pair<std::string, FocusTarget>> targets;
  for (const auto& listener : result.listeners) {
    if (listener.focusTarget) targets.emplace_back(listener.id(), *listener.focusTarget);
  }
  if (!d_.focusProbe || targets.empty()) {
    if (!focusLabelByID_.isEmpty()) {
      focusLabelByID_.clear();
      Q_EMIT focusLabelByIDChanged();
    }
    return;
  }
  // Asking the desktop which hosts have a window is a round trip: on the probe worker, once per
  // host in a pass. No focus is offered for a host the desktop cannot bring forward.
  d_.focusProbe([targets = std::move(targets), running = d_.hasRunningApplication, executor = d_.executor,
                 alive = std::weak_ptr<bool>(alive_), this, generation] {
    std::map<int32_t, bool> hasWindow;
    QVariantMap labels;
    for (const auto& [id, target] : targets) {
      auto known = hasWindow.find(target.pid);
      if (known == hasWindow.end()) known = hasWindow.emplace(target.pid, running && running(target.pid)).first;
      if (known->second) labels.insert(QString::fromStdString(id), text(target.displayName));
    }
    executor->post([alive, this, generation, labels = std::move(labels)] {
      if (!alive.lock() || generation != focusGeneration_ || labels == focusLabelByID_) return;
      focusLabelByID_ = labels;
      Q_EMIT focusLabelByIDChanged();
    });
  });
}

void TidewatchViewModel::clearMonitoring() {
  ++focusGeneration_;
  ++actionGeneration_;
  ++stopAgentPreparation_;
  state_ = State::loading;
  result_.reset();
  activityByID_.clear();
  activityLevels_.clear();
  cpuPercentByID_.clear();
  focusLabelByID_.clear();
  clearPending();
  setKillNotice(std::nullopt);
  setExpandedAgentSessionID({});
  setExactScope(std::nullopt);
  agentFocusLabelByID_.clear();
  Q_EMIT agentFocusLabelByIDChanged();
  Q_EMIT activityByIDChanged();
  Q_EMIT cpuPercentByIDChanged();
  Q_EMIT focusLabelByIDChanged();
  Q_EMIT stateChanged();
  rebuildListenerRows();
}

void TidewatchViewModel::refreshExactAgentScope(const ScanResult& result) {
  if (!exactScope_) return;
  std::optional<AgentKind> provider;
  for (const auto& entry : result.agentPresence.entries) {
    if (entry.identity == exactScope_->identity) provider = entry.provider;
  }
  if (!provider) {
    for (const auto& listener : result.listeners) {
      if (listener.agentProcess == exactScope_->identity) {
        provider = listener.agentOrigin;
        break;
      }
    }
  }
  // The scope follows a re-attribution and stays when the agent vanishes.
  if (!provider || *provider == exactScope_->provider) return;
  setExactScope(ExactScope{exactScope_->identity, *provider});
}

// ---- Inventory ------------------------------------------------------------------------------

void TidewatchViewModel::inventoryPublished(const AgentInventorySnapshot& snapshot) {
  inventory_ = snapshot;
  rebuildAgentRows();
  if (panelMode_ == PanelMode::agents) rebuildListenerRows();
  if (!d_.focusProbe) return;
  // Which hosts are live is read on the probe worker, once per host in a pass.
  const auto generation = ++inventoryGeneration_;
  d_.focusProbe([sessions = snapshot.currentSessions(), resolver = d_.focusHostResolver, executor = d_.executor,
                 running = d_.hasRunningApplication, alive = std::weak_ptr<bool>(alive_), this, generation] {
    std::map<ProcessIdentity, bool> live;
    QVariantMap labels;
    for (const auto& session : sessions) {
      if (!session.controlSurface) continue;
      const auto& host = *session.controlSurface;
      auto known = live.find(host.identity);
      if (known == live.end()) {
        const bool same = resolver && resolver(host.identity.pid) == host.identity;
        known = live.emplace(host.identity, same && running && running(host.identity.pid)).first;
      }
      if (known->second) labels.insert(QString::fromStdString(session.id.stableID()), text(host.displayName));
    }
    executor->post([alive, this, generation, labels = std::move(labels)] {
      if (!alive.lock() || generation != inventoryGeneration_) return;
      if (labels != agentFocusLabelByID_) {
        agentFocusLabelByID_ = std::move(labels);
        Q_EMIT agentFocusLabelByIDChanged();
      }
    });
  });
}

// ---- Rows -----------------------------------------------------------------------------------

void TidewatchViewModel::rebuildListenerRows() {
  if (!result_) {
    shownIDs_.clear();
    listenerRows_.update({});
    rebuildPortsPaneWords(std::nullopt, ListenerListModel{});
    return;
  }
  ScanResult shown = *result_;
  if (exactScope_) {
    std::erase_if(shown.listeners, [this](const auto& listener) { return listener.agentProcess != exactScope_->identity; });
  }
  const ListenerPreferences preferences{filter_, searchText_.toStdString(), sortMode_, activityLevels_};
  const auto model = ListenerListModel::build(shown, preferences);
  // `shown` is the scoped result the pane's words count from.
  std::vector<PortListener> rows;
  if (const auto* found = std::get_if<ListenerListModel::Rows>(&model.content)) {
    rows = found->visible;
    if (showSystem_) rows.insert(rows.end(), found->hidden.begin(), found->hidden.end());
  }
  std::vector<KeyedListModel::Row> values;
  values.reserve(rows.size());
  for (const auto& listener : rows) {
    const std::string id = listener.id();
    const QString key = QString::fromStdString(id);
    const auto cpu = cpuPercentByID_.value(key);
    const auto activity = activityLevels_.find(id);
    values.push_back({id,
                      {key, listener.port, text(listener.process.displayName()), listener.process.identity.pid,
                       text(listener.classification.label), optionalText(classificationDisplayLabel(listener)),
                       text(rawValue(listener.bindScope)), text(badgeWord(listener.bindScope)),
                       listener.visibility != VisibilityClass::defaultVisible, listener.workerPoolSize,
                       listener.agentOrigin ? QVariant(text(rawValue(*listener.agentOrigin))) : QVariant(),
                       listener.host ? QVariant(text(displayName(listener.host->kind))) : QVariant(),
                       listener.project ? QVariant(text(listener.project->name)) : QVariant(),
                       listener.project ? optionalText(listener.project->path) : QVariant(),
                       optionalText(listener.process.executablePath), cpu,
                       cpu.isValid() ? QVariant(text(CPUDisplay::label(cpu.toDouble()))) : QVariant(),
                       text(rawValue(activity == activityLevels_.end() ? ActivityLevel::unknown : activity->second)),
                       listener.process.residentMemoryBytes
                           ? QVariant(static_cast<qulonglong>(*listener.process.residentMemoryBytes))
                           : QVariant(),
                       listener.process.residentMemoryBytes
                           ? QVariant(text(MemoryDisplay::label(*listener.process.residentMemoryBytes)))
                           : QVariant(),
                       text(UptimeDisplay::label(static_cast<int64_t>(listener.process.identity.startTimeSeconds),
                                                 result_->scannedAt)),
                       focusLabelByID_.value(key), optionalText(openableURL(listener)),
                       KillRequest::request(listener, d_.context).has_value(),
                       StopPoolRequest::request(listener, d_.context).has_value(),
                       text(PanelTexts::tooltipText(listener)),
                       text(PanelTexts::activityLabel(activity == activityLevels_.end() ? ActivityLevel::unknown
                                                                                        : activity->second)),
                       detailLine(listener)}});
  }
  shownIDs_.clear();
  for (const auto& listener : rows) shownIDs_.push_back(listener.id());
  listenerRows_.update(std::move(values));
  rebuildPortsPaneWords(shown, model);
}

QString TidewatchViewModel::detailLine(const PortListener& listener) const {
  // The second line of a row: the facts the settings chose, then the agent that started it.
  QStringList parts;
  if (displayFields_.project && listener.project) parts << text(listener.project->name);
  if (displayFields_.host && listener.host) parts << text(displayName(listener.host->kind));
  if (displayFields_.path && listener.process.executablePath) parts << text(*listener.process.executablePath);
  if (listener.agentOrigin) parts << text(displayName(*listener.agentOrigin));
  return parts.join(QStringLiteral(" \u00B7 "));
}

void TidewatchViewModel::rebuildPortsPaneWords(const std::optional<ScanResult>& shown, const ListenerListModel& model) {
  PanelTexts::PortsPane pane;
  pane.scopedResult = shown;
  if (state_ == State::failed) pane.failure = std::string(PanelActions::scanFailed);
  pane.model = model;
  pane.filter = filter_;
  pane.searchText = searchText_.toStdString();
  pane.exactAgentScope = exactScope_.has_value();
  pane.showSystem = showSystem_;
  const auto count = PanelTexts::listenerCountText(panelMode_, static_cast<int>(inventory_.currentSessions().size()), pane);
  countText_ = count ? text(*count) : QString();
  footerText_ = text(PanelTexts::listFooterText(pane));
  emptyState_.clear();
  if (const auto empty = PanelTexts::emptyState(pane)) {
    QStringList actions;
    for (const auto& action : empty->actions) actions << text(action);
    emptyState_ = {{QStringLiteral("title"), text(empty->title)},
                   {QStringLiteral("detail"), empty->detail ? text(*empty->detail) : QString()},
                   {QStringLiteral("actions"), actions}};
  }
  chips_.clear();
  for (const auto chip : PortsChipRail::categories(model.chips, filter_)) {
    chips_ << QVariantMap{{QStringLiteral("raw"), text(rawValue(chip))},
                          {QStringLiteral("name"), text(displayName(chip))},
                          {QStringLiteral("stale"), chip == filter_ && model.activeChipIsStale}};
  }
  Q_EMIT portsPaneChanged();
}

void TidewatchViewModel::rebuildAgentRows() {
  const auto model = AgentInventoryListModel::build(inventory_, agentFilter_, searchText_.toStdString());
  std::vector<KeyedListModel::Row> values;
  if (const auto* sections = std::get_if<std::vector<AgentInventoryListModel::Section>>(&model.content)) {
    const auto availability = inventory_.stopAvailabilityByID();
    for (const auto& section : *sections) {
      const QString title = section.host ? text(section.host->displayName) : QStringLiteral("Unknown app");
      for (const auto& row : section.rows) {
        const std::string id = row.id.stableID();
        const auto stop = availability.at(id);
        const auto words = unavailableStopWords(stop);
        values.push_back(
            {id,
             {QString::fromStdString(id), QString::fromStdString(section.identity()), title,
              text(rawValue(row.provider)), text(providerWord(row.provider)),
              static_cast<int>(row.state), text(badgeWord(row.state)), text(row.explanation()),
              row.controlSurface ? QVariant(text(row.controlSurface->displayName)) : QVariant(),
              optionalText(row.projectName), text(row.executionLocation.displayWords()),
              text(displayWords(row.evidence)),
              row.processIdentity ? QVariant(row.processIdentity->process.pid) : QVariant(),
              text(row.portDetail()), static_cast<int>(row.relatedListenerIDs.size()),
              words ? QVariant(text(*words)) : QVariant(), stop == AgentStopAvailability::available,
              static_cast<qlonglong>(std::chrono::duration_cast<std::chrono::seconds>(
                                         row.lastEventAt.time_since_epoch())
                                         .count()),
              agentDetailLine(row)}});
      }
    }
  }
  agentRows_.update(std::move(values));

  // The words around the rows.
  const auto& connections = inventory_.providerConnections;
  const auto globalPrompt = AgentsConnectionPrompt::resolve(connections);
  std::optional<AgentsConnectionPrompt> prompt = globalPrompt;
  if (agentFilter_ != AgentProviderFilter::all) {
    prompt = AgentsConnectionPrompt::resolve(agentFilter_ == AgentProviderFilter::codex ? AgentKind::codex
                                                                                        : AgentKind::claude,
                                             connections);
  }
  QVariantMap pane{
      {QStringLiteral("summary"), text(model.summaryLine)},
      {QStringLiteral("stateLine"), optionalText(model.stateLine)},
      {QStringLiteral("footer"), text(AgentsPaneText::footer(inventory_, globalPrompt))},
      {QStringLiteral("allCount"), model.allCount},
      {QStringLiteral("codexCount"), model.codexCount},
      {QStringLiteral("claudeCount"), model.claudeCount},
  };
  if (globalPrompt) {
    pane.insert(QStringLiteral("promptProvider"), text(rawValue(globalPrompt->provider)));
    if (globalPrompt->kind == AgentsConnectionPrompt::Kind::connect) {
      pane.insert(QStringLiteral("promptAction"), QStringLiteral("Connect ") + text(providerWord(globalPrompt->provider)));
    }
  }
  const QString detail = text(globalPrompt ? globalPrompt->detail() : std::string(AgentsPaneText::noPromptDetail));
  QVariantMap empty;
  if (std::holds_alternative<AgentInventoryListModel::Empty>(model.content)) {
    empty = {{QStringLiteral("title"), text(AgentsPaneText::emptyTitle)}, {QStringLiteral("detail"), detail}};
    const auto variant = AgentsEmptyStateVariant::resolve(connections, receiverFailure_);
    if (const auto* failed = std::get_if<AgentsEmptyStateVariant::ReceiverFailed>(&variant)) {
      empty.insert(QStringLiteral("detail"), QStringLiteral("Configured, but not receiving events \u2014 ") +
                                                 text(failed->failure));
      empty.insert(QStringLiteral("actions"), QStringList{QStringLiteral("Retry")});
    }
  } else if (std::holds_alternative<AgentInventoryListModel::ProviderEmpty>(model.content)) {
    empty = {{QStringLiteral("title"), text(AgentsPaneText::providerEmptyTitle(agentFilter_))},
             {QStringLiteral("detail"), text(AgentsPaneText::providerEmptyDetail(agentFilter_, prompt, globalPrompt))},
             {QStringLiteral("actions"), QStringList{text(AgentsPaneText::showAllAction)}}};
  } else if (std::holds_alternative<AgentInventoryListModel::NoSearchMatches>(model.content)) {
    empty = {{QStringLiteral("title"), text(AgentsPaneText::noMatchesTitle)},
             {QStringLiteral("detail"), text(AgentsPaneText::noMatchesDetail)}};
  }
  pane.insert(QStringLiteral("empty"), empty);
  if (pane != agentsPane_) {
    agentsPane_ = std::move(pane);
    Q_EMIT agentsPaneChanged();
  }
}

QString TidewatchViewModel::agentDetailLine(const AgentSessionSnapshot& row) {
  if (!row.processIdentity) return text(PanelTexts::providerSessionWithoutProcess);
  QStringList parts{text(row.executionLocation.displayWords()), text(displayWords(row.evidence))};
  if (const auto ports = row.portDetail(); !ports.empty()) parts << text(ports);
  parts << QStringLiteral("PID ") + QString::number(row.processIdentity->process.pid);
  parts.removeAll(QString());
  return parts.join(QStringLiteral(" \u00B7 "));
}

void TidewatchViewModel::setReceiverFailure(const std::optional<std::string>& failure) {
  if (failure == receiverFailure_) return;
  receiverFailure_ = failure;
  rebuildAgentRows();
}

std::optional<PortListener> TidewatchViewModel::listener(const QString& rowID) const {
  if (!result_) return std::nullopt;
  const std::string id = rowID.toStdString();
  for (const auto& listener : result_->listeners) {
    if (listener.id() == id) return listener;
  }
  return std::nullopt;
}

std::optional<AgentSessionSnapshot> TidewatchViewModel::session(const QString& sessionID) const {
  const std::string id = sessionID.toStdString();
  for (const auto& session : inventory_.sessions) {
    if (session.id.stableID() == id) return session;
  }
  return std::nullopt;
}

// ---- Properties -----------------------------------------------------------------------------

QString TidewatchViewModel::state() const {
  switch (state_) {
    case State::loaded: return QStringLiteral("loaded");
    case State::failed: return QStringLiteral("failed");
    case State::loading: return QStringLiteral("loading");
  }
  return {};
}

QString TidewatchViewModel::stateMessage() const {
  return state_ == State::failed ? text(PanelActions::scanFailed) : QString();
}

void TidewatchViewModel::setShowSystem(bool show) {
  if (show == showSystem_) return;
  showSystem_ = show;
  Q_EMIT showSystemChanged();
  rebuildListenerRows();
}

QString TidewatchViewModel::sortMode() const { return text(rawValue(sortMode_)); }

void TidewatchViewModel::setSortMode(const QString& mode) {
  const auto parsed = listenerSortModeFromRaw(mode.toStdString());
  if (!parsed || *parsed == sortMode_) return;
  sortMode_ = *parsed;
  Q_EMIT sortModeChanged();
  rebuildListenerRows();
}

QString TidewatchViewModel::filter() const { return text(rawValue(filter_)); }

void TidewatchViewModel::setFilter(const QString& filter) {
  const auto parsed = filterCategoryFromRaw(filter.toStdString());
  if (!parsed || *parsed == filter_) return;
  filter_ = *parsed;
  Q_EMIT filterChanged();
  rebuildListenerRows();
}

void TidewatchViewModel::setSearchText(const QString& searchText) {
  if (searchText == searchText_) return;
  searchText_ = searchText;
  Q_EMIT searchTextChanged();
  rebuildListenerRows();
  rebuildAgentRows();
}

QString TidewatchViewModel::panelMode() const {
  return panelMode_ == PanelMode::ports ? QStringLiteral("ports") : QStringLiteral("agents");
}

void TidewatchViewModel::setPanelMode(PanelMode mode) {
  if (mode == panelMode_) return;
  panelMode_ = mode;
  Q_EMIT panelModeChanged();
  rebuildListenerRows();
}

QString TidewatchViewModel::agentFilter() const {
  switch (agentFilter_) {
    case AgentProviderFilter::all: return QStringLiteral("all");
    case AgentProviderFilter::codex: return QStringLiteral("codex");
    case AgentProviderFilter::claude: return QStringLiteral("claude");
  }
  return {};
}

void TidewatchViewModel::setAgentFilter(const QString& filter) {
  std::optional<AgentProviderFilter> parsed;
  if (filter == QLatin1String("all")) parsed = AgentProviderFilter::all;
  if (filter == QLatin1String("codex")) parsed = AgentProviderFilter::codex;
  if (filter == QLatin1String("claude")) parsed = AgentProviderFilter::claude;
  if (!parsed || *parsed == agentFilter_) return;
  agentFilter_ = *parsed;
  Q_EMIT agentFilterChanged();
  rebuildAgentRows();
}

void TidewatchViewModel::setExpandedAgentSessionID(const QString& id) {
  if (id == expandedAgentSessionID_) return;
  expandedAgentSessionID_ = id;
  Q_EMIT expandedAgentSessionIDChanged();
}

QString TidewatchViewModel::exactAgentScope() const {
  if (!exactScope_) return {};
  return QString::fromStdString(exactScope_->identity.stableID());
}

void TidewatchViewModel::setExactScope(std::optional<ExactScope> scope) {
  const bool same = scope.has_value() == exactScope_.has_value() &&
                    (!scope || (scope->identity == exactScope_->identity && scope->provider == exactScope_->provider));
  if (same) return;
  exactScope_ = scope;
  Q_EMIT exactAgentScopeChanged();
  rebuildListenerRows();
}

QString TidewatchViewModel::pendingConfirmation() const {
  if (pending_.kill) return QStringLiteral("kill");
  if (pending_.forceKill) return QStringLiteral("forceKill");
  if (pending_.stopPool) return QStringLiteral("stopPool");
  if (pending_.stopVisible) return QStringLiteral("stopVisible");
  if (pending_.stopAgent) return QStringLiteral("stopAgent");
  return {};
}

QVariantMap TidewatchViewModel::confirmation() const {
  std::optional<ConfirmationText> shown;
  if (pending_.kill) shown = pending_.kill->confirmation();
  else if (pending_.forceKill) shown = pending_.forceKill->confirmation();
  else if (pending_.stopPool) shown = pending_.stopPool->confirmation();
  else if (pending_.stopVisible) shown = pending_.stopVisible->confirmation();
  else if (pending_.stopAgent) shown = pending_.stopAgent->confirmation();
  if (!shown) return {};
  return {{QStringLiteral("title"), text(shown->title)},
          {QStringLiteral("message"), text(shown->message)},
          {QStringLiteral("button"), text(shown->button)}};
}

void TidewatchViewModel::reloadDisplaySettings() {
  readDisplaySettings();
  Q_EMIT displayChanged();
  rebuildListenerRows();
}

QString TidewatchViewModel::lastScannedText() const {
  if (state_ != State::loaded || !result_) return {};
  // The locale's short time with the seconds: a medium time without a date.
  QString format = QLocale().timeFormat(QLocale::ShortFormat);
  if (!format.contains(QStringLiteral("ss"))) format.replace(QStringLiteral("mm"), QStringLiteral("mm:ss"));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(result_->scannedAt.time_since_epoch()).count();
  return text(PanelTexts::lastScannedPrefix) +
         QLocale().toString(QDateTime::fromSecsSinceEpoch(seconds).time(), format);
}

QString TidewatchViewModel::scopeChipText() const {
  return exactScope_ ? text(PanelTexts::scopeChipText(exactScope_->provider)) : QString();
}

QString TidewatchViewModel::scopeChipHelp() const {
  return exactScope_ ? text(PanelTexts::scopeChipHelp(exactScope_->provider)) : QString();
}

QVariantList TidewatchViewModel::sortModes() const {
  QVariantList modes;
  for (const auto mode : {ListenerSortMode::port, ListenerSortMode::activity, ListenerSortMode::memory,
                          ListenerSortMode::uptime}) {
    modes << QVariantMap{{QStringLiteral("raw"), text(rawValue(mode))}, {QStringLiteral("name"), text(displayName(mode))}};
  }
  return modes;
}

QString TidewatchViewModel::sortModeName() const { return text(displayName(sortMode_)); }

QString TidewatchViewModel::visibleStopHelp() const { return text(PanelTexts::visibleStopHelp); }

QString TidewatchViewModel::nextSelection(const QString& selectedID, int delta) const {
  const auto next = ListenerKeyboardNavigation::nextID(
      shownIDs_, selectedID.isEmpty() ? std::nullopt : std::optional<std::string>(selectedID.toStdString()), delta);
  return next ? QString::fromStdString(*next) : QString();
}

QVariantList TidewatchViewModel::actionMenu(const QString& rowID) const {
  QVariantList items;
  const auto found = listener(rowID);
  if (!found) return items;
  const auto url = openableURL(*found);
  const bool canFocus = !focusLabelByID_.value(rowID).toString().isEmpty();
  static const char* const actionNames[] = {"openInBrowser", "copyURL", "copyPort", "copyDetails",
                                            "focusApp",      "kill",    "forceKill", "stopPool"};
  for (const auto& item : ListenerActionMenu::items(url.has_value(), KillRequest::request(*found, d_.context).has_value(),
                                                    ForceKillRequest::request(*found, d_.context).has_value(),
                                                    StopPoolRequest::request(*found, d_.context).has_value(), canFocus)) {
    using Action = ListenerActionMenu::Item::Action;
    QString payload;
    if (item.action == Action::openInBrowser || item.action == Action::copyURL) payload = text(*url);
    if (item.action == Action::copyPort) payload = QString::number(found->port);
    if (item.action == Action::copyDetails) payload = text(ListenerActionMenu::detailsText(*found));
    items << QVariantMap{{QStringLiteral("action"), QLatin1String(actionNames[static_cast<int>(item.action)])},
                         {QStringLiteral("title"), text(item.title)},
                         {QStringLiteral("hint"), text(item.hint)},
                         {QStringLiteral("destructive"), item.destructive},
                         {QStringLiteral("dividerBefore"), item.dividerBefore},
                         {QStringLiteral("payload"), payload}};
  }
  return items;
}

QString TidewatchViewModel::actionMenuTitle(const QString& rowID) const {
  const auto found = listener(rowID);
  return found ? text(ListenerActionMenu::accessibilityTitle(*found)) : QString();
}

void TidewatchViewModel::performMenuAction(const QString& rowID, const QString& action) {
  if (action == QLatin1String("focusApp")) focusHost(rowID);
  else if (action == QLatin1String("kill")) offerKill(rowID);
  else if (action == QLatin1String("forceKill")) offerForceKill(rowID);
  else if (action == QLatin1String("stopPool")) offerStopPool(rowID);
}

QVariantMap TidewatchViewModel::keyboardAction(const QString& rowID, const QString& key) {
  const auto found = listener(rowID);
  if (!found || key.size() != 1) return {{QStringLiteral("handled"), false}};
  const bool hasFocusLabel = !focusLabelByID_.value(rowID).toString().isEmpty();
  const auto action = ListenerKeyboardAction::forKey(key.at(0).unicode(), *found, d_.context, hasFocusLabel);
  if (!action) return {{QStringLiteral("handled"), false}};
  using Kind = ListenerKeyboardAction::Kind;
  switch (action->kind) {
    case Kind::open:
      return {{QStringLiteral("handled"), true}, {QStringLiteral("kind"), QStringLiteral("open")},
              {QStringLiteral("url"), text(*action->url)}};
    // A stop only asks: the confirmation shows, and nothing is signalled until it is confirmed.
    case Kind::stopPool: offerStopPool(rowID); break;
    case Kind::kill: offerKill(rowID); break;
    case Kind::focus: focusHost(rowID); break;
    case Kind::unavailable: break;
  }
  return {{QStringLiteral("handled"), true}, {QStringLiteral("kind"), QStringLiteral("other")}};
}

void TidewatchViewModel::performEmptyStateAction(const QString& action) {
  // The words of the ports pane's empty states.
  if (action == QLatin1String("View Agents")) selectPanelMode(QStringLiteral("agents"));
  else if (action == QLatin1String("Show all")) setFilter(QStringLiteral("all"));
  else if (action == QLatin1String("Remove scope")) clearAgentScope();
  else if (action == QLatin1String("Clear filters")) {
    setSearchText({});
    setFilter(QStringLiteral("all"));
  } else if (action == QLatin1String("Try Again") && requestScan) {
    requestScan();
  }
}

void TidewatchViewModel::connectProvider(const QString& provider) {
  const auto kind = agentKindFromRaw(provider.toStdString());
  if (kind && connectProviderHooks) connectProviderHooks(*kind);
}

void TidewatchViewModel::performAgentsEmptyStateAction(const QString& action) {
  if (action == text(AgentsPaneText::showAllAction)) setAgentFilter(QStringLiteral("all"));
  else if (action == QLatin1String("Retry") && retryReceiver) retryReceiver();
}

void TidewatchViewModel::readDisplaySettings() {
  displayFields_ = DisplaySettings::visibleFields(d_.defaults);
  rowDensity_ = DisplaySettings::rowDensity(d_.defaults);
}

QString TidewatchViewModel::rowDensity() const { return text(DisplaySettings::rawValue(rowDensity_)); }

QVariantMap TidewatchViewModel::fieldsMap(const RowVisibleFields& f) {
  return {{QStringLiteral("port"), f.port},       {QStringLiteral("cpu"), f.cpu},
          {QStringLiteral("memory"), f.memory},   {QStringLiteral("path"), f.path},
          {QStringLiteral("host"), f.host},       {QStringLiteral("project"), f.project},
          {QStringLiteral("uptime"), f.uptime},   {QStringLiteral("power"), f.power},
          {QStringLiteral("powerLabels"), f.powerLabels}};
}

void TidewatchViewModel::setKillNotice(std::optional<std::string> notice) {
  const QString next = notice ? QString::fromStdString(*notice) : QString();
  if (next == killNotice_) return;
  killNotice_ = next;
  Q_EMIT killNoticeChanged();
}

void TidewatchViewModel::clearPending() {
  pending_ = {};
  Q_EMIT pendingChanged();
}

// ---- Views' operations ----------------------------------------------------------------------

void TidewatchViewModel::selectPanelMode(const QString& mode) {
  const PanelMode parsed = mode == QLatin1String("agents") ? PanelMode::agents : PanelMode::ports;
  setPanelMode(parsed);
  (void)d_.defaults.set(std::string(lastUsedPanelModeKey), parsed == PanelMode::agents ? "agents" : "ports");
  if (parsed == PanelMode::ports) setExpandedAgentSessionID({});
}

void TidewatchViewModel::persistLastUsedFilter() {
  (void)d_.defaults.set(std::string(lastUsedFilterKey), std::string(rawValue(filter_)));
}

template <typename Request>
bool TidewatchViewModel::offer(const QString& rowID, std::optional<Request> Pending::*slot) {
  auto row = listener(rowID);
  auto request = row ? Request::request(*row, d_.context) : std::nullopt;
  if (!request) return false;
  pending_ = {};
  pending_.*slot = std::move(request);
  Q_EMIT pendingChanged();
  return true;
}

bool TidewatchViewModel::offerKill(const QString& rowID) { return offer(rowID, &Pending::kill); }
bool TidewatchViewModel::offerForceKill(const QString& rowID) { return offer(rowID, &Pending::forceKill); }
bool TidewatchViewModel::offerStopPool(const QString& rowID) { return offer(rowID, &Pending::stopPool); }

bool TidewatchViewModel::offerStopVisible() {
  if (!result_) return false;
  // What is on view: the rows of the list as it stands, hidden ones only when shown.
  std::vector<PortListener> shown;
  for (const auto& row : listenerRows_.rows()) {
    if (auto found = listener(QString::fromStdString(row.key))) shown.push_back(*found);
  }
  auto request = StopVisibleRequest::request(shown, d_.context);
  if (!request) return false;
  pending_ = {};
  pending_.stopVisible = std::move(request);
  Q_EMIT pendingChanged();
  return true;
}

void TidewatchViewModel::cancelConfirmation() { clearPending(); }

void TidewatchViewModel::confirm() {
  const Pending pending = pending_;
  if (pending.kill) return confirmKill(*pending.kill);
  if (pending.forceKill) return confirmForceKill(*pending.forceKill);
  if (pending.stopPool) return confirmStopPool(*pending.stopPool);
  if (pending.stopVisible) return confirmStopVisible(*pending.stopVisible);
  if (pending.stopAgent) return confirmStopAgent(*pending.stopAgent);
}

template <typename Outcome, typename Request>
void TidewatchViewModel::runAction(std::function<Outcome(const Request&)> operation, Request request) {
  clearPending();
  setKillNotice(std::nullopt);
  // A new action replaces the one in flight: its outcome will find the generation moved on.
  const auto generation = ++actionGeneration_;
  d_.runInBackground([operation = std::move(operation), request = std::move(request), executor = d_.executor,
                      alive = std::weak_ptr<bool>(alive_), this, generation] {
    Outcome outcome = operation(request);
    executor->post([alive, this, generation, outcome = std::move(outcome)] {
      if (!alive.lock() || generation != actionGeneration_) return;
      setKillNotice(PanelActions::notice(outcome));
      if (requestScan) requestScan();
    });
  });
}

void TidewatchViewModel::confirmKill(const KillRequest& request) { runAction(d_.kill, request); }
void TidewatchViewModel::confirmForceKill(const ForceKillRequest& request) { runAction(d_.forceKill, request); }
void TidewatchViewModel::confirmStopPool(const StopPoolRequest& request) { runAction(d_.stopPool, request); }
void TidewatchViewModel::confirmStopVisible(const StopVisibleRequest& request) { runAction(d_.stopVisible, request); }

void TidewatchViewModel::confirmStopAgent(const StopAgentRequest& request) {
  if (PanelActions::sessionsOnProcess(inventory_, request.pid) >= 2) {
    // Sessions came together on the process after the offer: nothing is signalled.
    pending_.stopAgent.reset();
    Q_EMIT pendingChanged();
    setKillNotice(std::string(PanelActions::processNowBacksSessions));
    return;
  }
  runAction(d_.stopAgent, request);
}

void TidewatchViewModel::requestStopAgent(const QString& sessionID) {
  const auto found = session(sessionID);
  if (!found) return;
  if (const auto refusal = PanelActions::stopAgentRefusal(*found, inventory_)) {
    setKillNotice(std::string(*refusal));
    return;
  }
  pending_.stopAgent.reset();
  Q_EMIT pendingChanged();
  setKillNotice(std::nullopt);
  const auto generation = ++stopAgentPreparation_;
  d_.runInBackground([resolver = d_.stopAgentRequest, id = found->id.stableID(), provider = found->provider,
                      identity = *found->processIdentity, executor = d_.executor, alive = std::weak_ptr<bool>(alive_),
                      this, generation] {
    auto request = resolver(id, provider, identity);
    executor->post([alive, this, generation, request = std::move(request)] {
      if (!alive.lock() || generation != stopAgentPreparation_) return;
      if (request) {
        pending_ = {};
        pending_.stopAgent = request;
        Q_EMIT pendingChanged();
        return;
      }
      setKillNotice(std::string(PanelActions::agentChangedBeforeVerify));
      if (requestScan) requestScan();
    });
  });
}

void TidewatchViewModel::focusAgentHost(const QString& sessionID) {
  const auto found = session(sessionID);
  if (!found || !found->controlSurface || !d_.focusProbe) return;
  const auto host = *found->controlSurface;
  d_.focusProbe([resolver = d_.focusHostResolver, activator = d_.focusHostActivator, executor = d_.executor, host] {
    // Only the very process the row names: a reused pid is somebody else's window.
    if (!resolver || resolver(host.identity.pid) != host.identity) return;
    executor->post([activator, pid = host.identity.pid] {
      if (activator) activator(pid);
    });
  });
}

void TidewatchViewModel::focusHost(const QString& rowID) {
  const auto row = listener(rowID);
  if (!row || !row->focusTarget || !d_.focusProbe) return;
  const int32_t pid = row->focusTarget->pid;
  d_.focusProbe([resolver = d_.focusHostResolver, activator = d_.focusHostActivator,
                 running = d_.hasRunningApplication, executor = d_.executor, pid] {
    if (!resolver || !resolver(pid) || !running || !running(pid)) return;
    executor->post([activator, pid] {
      if (activator) activator(pid);
    });
  });
}

void TidewatchViewModel::scopeToAgent(const QString& sessionID) {
  const auto found = session(sessionID);
  if (!found || !found->processIdentity) return;
  setExactScope(ExactScope{*found->processIdentity, found->provider});
  setPanelMode(PanelMode::ports);
}

void TidewatchViewModel::clearAgentScope() { setExactScope(std::nullopt); }

void TidewatchViewModel::viewProviderPorts(const QString& sessionID) {
  const auto found = session(sessionID);
  if (!found) return;
  setExactScope(std::nullopt);
  setFilter(found->provider == AgentKind::claude ? QStringLiteral("claude") : QStringLiteral("codex"));
  setPanelMode(PanelMode::ports);
}

}  // namespace tidewatch
