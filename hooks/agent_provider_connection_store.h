// The user's choice to connect a provider, and how each connection stands: worked out from that
// choice, the provider's settings file and the last event seen. It runs Connect, Repair,
// Disconnect and Test relay. Nothing reaches a provider's settings file without one of those
// actions; a refresh only reads.
//
// It belongs to one thread (the application's main thread) and has none of its own: the relay
// test's send goes through an injected operation that reports back on the owner's thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "hooks/agent_hook_configurator.h"
#include "hooks/agent_hook_installation.h"
#include "hooks/agent_hook_paths.h"
#include "hooks/agent_hook_protocol.h"
#include "process_core/defaults_store.h"
#include "process_core/process_records.h"

namespace tidewatch {

struct AgentProviderConnectionStatus {
  enum class Kind {
    connected,     // entries right and an event has come
    repairNeeded,  // configured, but the entries are missing or stale
    unavailable,   // the connection cannot work now
    notConfigured,
    configuredAwaitingFirstEvent,  // Claude Code: entries right, no event yet
    configuredAwaitingTrust,       // Codex: entries right, no event yet; the user approves them in Codex
  };
  Kind kind = Kind::notConfigured;
  std::optional<Date> lastEventAt;  // connected only
  std::string reason;               // repairNeeded and unavailable only

  static AgentProviderConnectionStatus connected(std::optional<Date> lastEventAt) {
    return {Kind::connected, lastEventAt, {}};
  }
  static AgentProviderConnectionStatus repairNeeded(std::string reason) {
    return {Kind::repairNeeded, std::nullopt, std::move(reason)};
  }
  static AgentProviderConnectionStatus unavailable(std::string reason) {
    return {Kind::unavailable, std::nullopt, std::move(reason)};
  }
  static AgentProviderConnectionStatus of(Kind kind) { return {kind, std::nullopt, {}}; }

  friend bool operator==(const AgentProviderConnectionStatus&, const AgentProviderConnectionStatus&) = default;
};

struct AgentProviderConnection {
  AgentKind provider = AgentKind::codex;
  AgentProviderConnectionStatus status;
  bool locallyEnabled = false;

  friend bool operator==(const AgentProviderConnection&, const AgentProviderConnection&) = default;
};

class AgentProviderConnectionStore {
 public:
  struct TestResult {
    AgentKind provider = AgentKind::codex;
    bool succeeded = false;
    Date at;
    friend bool operator==(const TestResult&, const TestResult&) = default;
  };

  // Sends the bytes to the socket away from the owner's thread within the time-out, then calls
  // `done` on the owner's thread with whether all of them went out.
  using SendInBackground = std::function<void(std::string bytes, std::string socketPath, double timeoutSeconds,
                                              std::function<void(bool sent)> done)>;
  // Runs work on the owner's thread, later.
  using PostToOwner = std::function<void(std::function<void()> work)>;

  struct Environment {
    std::string homeDirectory;
    // Where the running program lives; hooks reach it only when this is installation.installedLocation.
    std::string bundlePath;
    DefaultsStore defaults{""};
    std::function<Date()> now;
    AgentHookInstallation installation;
    // The runtime directories for homeDirectory: the desired socket and the owned candidates.
    AgentHookPaths::Profile hookPaths;
    AgentHookConfigurator::FileOperations files;
    SendInBackground sendInBackground;

    // The user's home, the running program, the standard defaults store, the wall clock, and a
    // relay test sent on a thread of its own that reports back through postToOwner.
    static Environment live(PostToOwner postToOwner);
  };

  enum class Action { connect, repair, testRelay, disconnect, retry };

  static constexpr std::string_view codexConfiguredKey = "agentConnections.codex.configured";
  static constexpr std::string_view claudeConfiguredKey = "agentConnections.claude.configured";
  static constexpr double testTimeoutSeconds = 0.5;

  static std::string_view configuredKey(AgentKind provider);
  // "Codex" or "Claude", as the settings card names a provider's settings.
  static std::string_view settingsName(AgentKind provider);
  // <home>/.codex/hooks.json or <home>/.claude/settings.json
  static std::string settingsPath(AgentKind provider, std::string_view homeDirectory);
  static std::string failureNotice(const AgentHookConfigurator::ConfigError& error, AgentKind provider);
  static std::string_view word(Action action);

  explicit AgentProviderConnectionStore(Environment environment);
  AgentProviderConnectionStore(const AgentProviderConnectionStore&) = delete;
  AgentProviderConnectionStore& operator=(const AgentProviderConnectionStore&) = delete;

  // Rebuilds connections, one per provider; reads the settings files, never writes them.
  void refresh();
  bool isConfigured(AgentKind provider) const;
  // A provider missing from connections reads as notConfigured and not enabled.
  AgentProviderConnection connection(AgentKind provider) const;
  AgentProviderConnectionStatus status(AgentKind provider);

  // Connect and Repair: installs the provider's entries, replacing any of the program's own.
  void connect(AgentKind provider);
  // The local state changes first, so the user's wish holds even when the file cannot be cleaned.
  void disconnect(AgentKind provider);
  // Sends a connection test to the socket. Only a failed send is recorded here; success is
  // recorded when the envelope arrives through the server at recordEnvelope.
  void testRelay(AgentKind provider);
  // Every accepted envelope: a connection test passes, any other event is the provider's latest.
  void recordEnvelope(const AgentHookProtocol::Envelope& envelope, Date at);
  // Set by the application when the hook server cannot start.
  void setReceiverFailure(std::optional<std::string> failure);

  const std::vector<AgentProviderConnection>& connections() const { return connections_; }
  const std::optional<TestResult>& lastTestResult() const { return lastTestResult_; }
  const std::optional<std::string>& actionNotice() const { return actionNotice_; }
  const std::optional<std::string>& receiverFailure() const { return receiverFailure_; }
  const Environment& environment() const { return environment_; }

  // The words of the settings card. The view formats the time of a connected provider.
  bool isRunningFromInstalledLocation() const;
  std::string caption(const AgentProviderConnection& connection,
                      const std::function<std::string(Date)>& formatTime) const;
  std::vector<Action> actions(const AgentProviderConnection& connection) const;
  // What Connect shows, doing nothing else, while the program runs outside its installed place.
  std::optional<std::string> connectBlockedNotice() const;
  std::optional<std::string> testResultLine(AgentKind provider) const;
  // With the action Retry.
  std::optional<std::string> receiverFailureLine() const;

  // Called after connect and disconnect.
  std::function<void()> onConfiguredChange;
  // Called whenever connections, lastTestResult, actionNotice or receiverFailure may have changed.
  std::function<void()> onChange;

 private:
  const std::set<std::string>& ownedCommands();
  std::vector<AgentHookConfigurator::DesiredEntry> desiredEntries(AgentKind provider) const;
  AgentHookPaths standardPaths() const;
  void changed();

  Environment environment_;
  std::vector<AgentProviderConnection> connections_;
  std::optional<TestResult> lastTestResult_;
  std::optional<std::string> actionNotice_;
  std::optional<std::string> receiverFailure_;
  std::map<AgentKind, Date> lastEventAt_;  // in memory only
  std::optional<std::set<std::string>> ownedCommands_;
  // A relay test's report that comes back after the store is gone finds this expired.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tidewatch
