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
    // Whether the pid has an application the desktop can bring to the front.
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
  // Asked after every action: the list refreshes at once.
  std::function<void()> requestScan;

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
  QVariantMap displayFields() const;
  QString rowDensity() const;
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
  void refreshExactAgentScope(const ScanResult& result);
  void rebuildListenerRows();
  void rebuildAgentRows();
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
  KeyedListModel listenerRows_;
  KeyedListModel agentRows_;
};

}  // namespace tidewatch
