// The one object the panel binds to. It holds what the panel shows (the last scan, the filters, the
// panel mode, activity and focus labels) and the guarded actions' pending confirmations and
// notices. Frames arrive from the panel's scan lifecycle; actions go from a request through a
// confirmation to the terminator, then ask for a rescan. It needs only QtCore: the rows reach the
// views through two list models, and every decision and text comes from the plain C++ models.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "app/display_settings.h"
#include "app/qt/keyed_list_model.h"
#include "inventory/agent_inventory_list_model.h"
#include "process_core/defaults_store.h"
#include "process_core/main_executor.h"
#include "tidewatch_kit/listener_actions.h"
#include "tidewatch_kit/listener_list_model.h"
#include "tidewatch_kit/port_scan_session.h"

namespace tidewatch {

class TidewatchViewModel : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString state READ state NOTIFY stateChanged)
  Q_PROPERTY(QString stateMessage READ stateMessage NOTIFY stateChanged)
  Q_PROPERTY(bool showSystem READ showSystem WRITE setShowSystem NOTIFY showSystemChanged)
  Q_PROPERTY(QString sortMode READ sortMode WRITE setSortMode NOTIFY sortModeChanged)
  Q_PROPERTY(QString filter READ filter WRITE setFilter NOTIFY filterChanged)
  Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
  Q_PROPERTY(QString panelMode READ panelMode NOTIFY panelModeChanged)
  Q_PROPERTY(QString agentFilter READ agentFilter WRITE setAgentFilter NOTIFY agentFilterChanged)
  Q_PROPERTY(QString expandedAgentSessionID READ expandedAgentSessionID WRITE setExpandedAgentSessionID NOTIFY
                 expandedAgentSessionIDChanged)
  Q_PROPERTY(QString exactAgentScope READ exactAgentScope NOTIFY exactAgentScopeChanged)
  Q_PROPERTY(QVariantMap agentFocusLabelByID READ agentFocusLabelByID NOTIFY agentFocusLabelByIDChanged)
  Q_PROPERTY(QVariantMap activityByID READ activityByID NOTIFY activityByIDChanged)
  Q_PROPERTY(QVariantMap cpuPercentByID READ cpuPercentByID NOTIFY cpuPercentByIDChanged)
  Q_PROPERTY(QVariantMap focusLabelByID READ focusLabelByID NOTIFY focusLabelByIDChanged)
  Q_PROPERTY(QString pendingConfirmation READ pendingConfirmation NOTIFY pendingChanged)
  Q_PROPERTY(QVariantMap confirmation READ confirmation NOTIFY pendingChanged)
  Q_PROPERTY(QString killNotice READ killNotice NOTIFY killNoticeChanged)
  Q_PROPERTY(QVariantMap displayFields READ displayFields NOTIFY displayChanged)
  Q_PROPERTY(QString rowDensity READ rowDensity NOTIFY displayChanged)
  Q_PROPERTY(QVariantMap agentsPane READ agentsPane NOTIFY agentsPaneChanged)
  Q_PROPERTY(QString countText READ countText NOTIFY portsPaneChanged)
  Q_PROPERTY(QString lastScannedText READ lastScannedText NOTIFY portsPaneChanged)
  Q_PROPERTY(QString footerText READ footerText NOTIFY portsPaneChanged)
  Q_PROPERTY(QVariantMap emptyState READ emptyState NOTIFY portsPaneChanged)
  Q_PROPERTY(QVariantList chips READ chips NOTIFY portsPaneChanged)
  Q_PROPERTY(QString scopeChipText READ scopeChipText NOTIFY exactAgentScopeChanged)
  Q_PROPERTY(QString scopeChipHelp READ scopeChipHelp NOTIFY exactAgentScopeChanged)
  Q_PROPERTY(QVariantList sortModes READ sortModes CONSTANT)
  Q_PROPERTY(QString sortModeName READ sortModeName NOTIFY sortModeChanged)
  Q_PROPERTY(QString visibleStopHelp READ visibleStopHelp CONSTANT)
  Q_PROPERTY(QObject* listeners READ listeners CONSTANT)
  Q_PROPERTY(QObject* agents READ agents CONSTANT)

 public:
  // Everything the view model reaches beyond itself; live() wires this machine's.
  struct Dependencies {
    std::shared_ptr<MainExecutor> executor;
    DefaultsStore defaults{""};
    SafetyContext context;
    // The guarded actions. They read and signal processes, so they run in the background.
    std::function<KillOutcome(const KillRequest&)> kill;
    std::function<KillOutcome(const ForceKillRequest&)> forceKill;
    std::function<StopPoolOutcome(const StopPoolRequest&)> stopPool;
    std::function<StopVisibleOutcome(const StopVisibleRequest&)> stopVisible;
    std::function<StopAgentOutcome(const StopAgentRequest&)> stopAgent;
    std::function<std::optional<StopAgentRequest>(const std::string& id, AgentKind provider,
                                                  const AgentProcessIdentity& identity)>
        stopAgentRequest;
    std::function<void(std::function<void()> work)> runInBackground;
    // The one serial worker on which focus probes read processes.
    std::function<void(std::function<void()> work)> focusProbe;
    // The identity behind a pid now; absent when gone. From the probe worker.
    std::function<std::optional<ProcessIdentity>(int32_t pid)> focusHostResolver;
    // Brings the application with that pid to the front.
    std::function<void(int32_t pid)> focusHostActivator;
    // Whether the pid has an application the desktop can bring to the front. From the probe
    // worker: it may ask the desktop.
    std::function<bool(int32_t pid)> hasRunningApplication;
    std::function<Date()> now;

    static Dependencies live(std::shared_ptr<MainExecutor> executor);
  };

  explicit TidewatchViewModel(Dependencies dependencies, QObject* parent = nullptr);
  ~TidewatchViewModel() override;

  // From the panel's scan lifecycle.
  void prepareForMonitoring();
  void apply(const ScanFrame& frame);
  void clearMonitoring();
  // From the inventory, after each publication.
  void inventoryPublished(const AgentInventorySnapshot& snapshot);
  // Why the hook server is not receiving, as the connection store words it; absent when it is.
  void setReceiverFailure(const std::optional<std::string>& failure);
  // Asked after every action: the list refreshes at once.
  std::function<void()> requestScan;
  // The agents pane's Retry, when the hook server failed to start.
  std::function<void()> retryReceiver;
  // The agents pane's Connect, with the provider to connect.
  std::function<void(AgentKind provider)> connectProviderHooks;

  // Properties.
  QString state() const;
  QString stateMessage() const;
  bool showSystem() const { return showSystem_; }
  void setShowSystem(bool show);
  QString sortMode() const;
  void setSortMode(const QString& mode);
  QString filter() const;
  void setFilter(const QString& filter);
  QString searchText() const { return searchText_; }
  void setSearchText(const QString& text);
  QString panelMode() const;
  QString agentFilter() const;
  void setAgentFilter(const QString& filter);
  QString expandedAgentSessionID() const { return expandedAgentSessionID_; }
  void setExpandedAgentSessionID(const QString& id);
  QString exactAgentScope() const;
  QVariantMap agentFocusLabelByID() const { return agentFocusLabelByID_; }
  QVariantMap activityByID() const { return activityByID_; }
  QVariantMap cpuPercentByID() const { return cpuPercentByID_; }
  QVariantMap focusLabelByID() const { return focusLabelByID_; }
  // "kill", "forceKill", "stopPool", "stopVisible", "stopAgent", or empty.
  QString pendingConfirmation() const;
  // title, message and button of the pending confirmation.
  QVariantMap confirmation() const;
  QString killNotice() const { return killNotice_; }
  QVariantMap displayFields() const { return fieldsMap(displayFields_); }
  // What a row shows, by the names the views use.
  static QVariantMap fieldsMap(const RowVisibleFields& fields);
  QString rowDensity() const;
  // The agents pane's words around its rows: summary, state line, footer, the connection prompt,
  // the empty state (title, detail, actions) and the provider counts of the filter.
  QVariantMap agentsPane() const { return agentsPane_; }
  // The ports pane's words around its rows, rebuilt with them.
  QString countText() const { return countText_; }
  QString lastScannedText() const;
  QString footerText() const { return footerText_; }
  QVariantMap emptyState() const { return emptyState_; }
  // {raw, name, stale} for each chip, in chip order.
  QVariantList chips() const { return chips_; }
  QString scopeChipText() const;
  QString scopeChipHelp() const;
  QVariantList sortModes() const;
  QString sortModeName() const;
  QString visibleStopHelp() const;
  QObject* listeners() { return &listenerRows_; }
  QObject* agents() { return &agentRows_; }

  // From the views.
  Q_INVOKABLE void selectPanelMode(const QString& mode);
  Q_INVOKABLE void persistLastUsedFilter();
  // Fill the pending request of a row (by its id), as the row's menu offers it; false when the
  // row offers no such action.
  Q_INVOKABLE bool offerKill(const QString& rowID);
  Q_INVOKABLE bool offerForceKill(const QString& rowID);
  Q_INVOKABLE bool offerStopPool(const QString& rowID);
  Q_INVOKABLE bool offerStopVisible();
  Q_INVOKABLE void cancelConfirmation();
  Q_INVOKABLE void confirm();
  Q_INVOKABLE void requestStopAgent(const QString& sessionID);
  Q_INVOKABLE void focusAgentHost(const QString& sessionID);
  Q_INVOKABLE void viewProviderPorts(const QString& sessionID);
  // Shows only the ports of the session's own process ("Remove scope" clears it).
  Q_INVOKABLE void scopeToAgent(const QString& sessionID);
  Q_INVOKABLE void clearAgentScope();
  Q_INVOKABLE void focusHost(const QString& rowID);
  // The id an arrow press selects among the rows on show; empty for an empty list.
  Q_INVOKABLE QString nextSelection(const QString& selectedID, int delta) const;
  // The row's menu: {action, title, hint, destructive, dividerBefore, payload}, where payload is
  // what Open and the copies use.
  Q_INVOKABLE QVariantList actionMenu(const QString& rowID) const;
  Q_INVOKABLE QString actionMenuTitle(const QString& rowID) const;
  // The menu's focus, kill, force kill and pool stop.
  Q_INVOKABLE void performMenuAction(const QString& rowID, const QString& action);
  // O, T or K on the selected row: {handled, kind, url}; a stop only asks for its confirmation,
  // and an open is left to the caller with the url.
  Q_INVOKABLE QVariantMap keyboardAction(const QString& rowID, const QString& key);
  // An empty state's button, by its words.
  Q_INVOKABLE void performEmptyStateAction(const QString& action);
  Q_INVOKABLE void performAgentsEmptyStateAction(const QString& action);
  Q_INVOKABLE void dismissNotice() { setKillNotice(std::nullopt); }
  // The provider's raw value.
  Q_INVOKABLE void connectProvider(const QString& provider);
  // The settings changed what a row shows.
  void reloadDisplaySettings();

  // The same in C++ terms, for the callers that hold the requests.
  void confirmKill(const KillRequest& request);
  void confirmForceKill(const ForceKillRequest& request);
  void confirmStopPool(const StopPoolRequest& request);
  void confirmStopVisible(const StopVisibleRequest& request);
  void confirmStopAgent(const StopAgentRequest& request);

  // What the properties stand for, in C++ terms.
  struct Pending {
    std::optional<KillRequest> kill;
    std::optional<ForceKillRequest> forceKill;
    std::optional<StopPoolRequest> stopPool;
    std::optional<StopVisibleRequest> stopVisible;
    std::optional<StopAgentRequest> stopAgent;
  };
  const Pending& pending() const { return pending_; }
  std::optional<ScanResult> loadedResult() const { return result_; }
  FilterCategory filterCategory() const { return filter_; }
  PanelMode currentPanelMode() const { return panelMode_; }
  const AgentInventorySnapshot& inventory() const { return inventory_; }

  static constexpr std::string_view lastUsedPanelModeKey = "display.lastUsedPanelMode";
  static constexpr std::string_view lastUsedFilterKey = "display.lastUsedFilter";
  static constexpr std::string_view showSystemRowsKey = "display.showSystemRows";

 Q_SIGNALS:
  void stateChanged();
  void showSystemChanged();
  void sortModeChanged();
  void filterChanged();
  void searchTextChanged();
  void panelModeChanged();
  void agentFilterChanged();
  void expandedAgentSessionIDChanged();
  void exactAgentScopeChanged();
  void agentFocusLabelByIDChanged();
  void activityByIDChanged();
  void cpuPercentByIDChanged();
  void focusLabelByIDChanged();
  void pendingChanged();
  void killNoticeChanged();
  void displayChanged();
  void agentsPaneChanged();
  void portsPaneChanged();

 private:
  enum class State { loaded, failed, loading };
  struct ExactScope {
    AgentProcessIdentity identity;
    AgentKind provider = AgentKind::codex;
  };

  template <typename Outcome, typename Request>
  void runAction(std::function<Outcome(const Request&)> operation, Request request);
  // Fills one pending request from the row, as its menu offers it.
  template <typename Request>
  bool offer(const QString& rowID, std::optional<Request> Pending::*slot);
  void setKillNotice(std::optional<std::string> notice);
  void setPanelMode(PanelMode mode);
  void setExactScope(std::optional<ExactScope> scope);
  void refreshFocusLabels(const ScanResult& result);
  void refreshExactAgentScope(const ScanResult& result);
  void rebuildListenerRows();
  void rebuildAgentRows();
  void rebuildPortsPaneWords(const std::optional<ScanResult>& shown, const ListenerListModel& model);
  QString detailLine(const PortListener& listener) const;
  static QString agentDetailLine(const AgentSessionSnapshot& row);
  std::optional<PortListener> listener(const QString& rowID) const;
  std::optional<AgentSessionSnapshot> session(const QString& sessionID) const;
  void clearPending();
  void readDisplaySettings();

  Dependencies d_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  State state_ = State::loading;
  std::optional<ScanResult> result_;
  bool showSystem_ = false;
  ListenerSortMode sortMode_ = ListenerSortMode::port;
  FilterCategory filter_ = FilterCategory::all;
  QString searchText_;
  PanelMode panelMode_ = PanelMode::ports;
  AgentProviderFilter agentFilter_ = AgentProviderFilter::all;
  QString expandedAgentSessionID_;
  std::optional<ExactScope> exactScope_;
  QVariantMap agentFocusLabelByID_;
  QVariantMap activityByID_;
  ActivityByID activityLevels_;
  QVariantMap cpuPercentByID_;
  QVariantMap focusLabelByID_;
  Pending pending_;
  QString killNotice_;
  RowVisibleFields displayFields_;
  DisplaySettings::RowDensity rowDensity_ = DisplaySettings::RowDensity::comfortable;
  bool panelModeResolvedThisOpen_ = false;
  AgentInventorySnapshot inventory_ = AgentInventorySnapshot::empty();
  // A new action or a closed panel voids what is in flight; these tell the answers that still count.
  unsigned long long actionGeneration_ = 0;
  unsigned long long stopAgentPreparation_ = 0;
  unsigned long long inventoryGeneration_ = 0;
  unsigned long long focusGeneration_ = 0;
  KeyedListModel listenerRows_;
  KeyedListModel agentRows_;
  QVariantMap agentsPane_;
  QString countText_;
  QString footerText_;
  QVariantMap emptyState_;
  QVariantList chips_;
  std::vector<std::string> shownIDs_;
  std::optional<std::string> receiverFailure_;
};

}  // namespace tidewatch
