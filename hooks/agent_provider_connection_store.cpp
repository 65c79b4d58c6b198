#include "hooks/agent_provider_connection_store.h"

#include <exception>

#include "hooks/agent_hook_relay.h"

namespace tidewatch {
namespace {

using AgentHookConfigurator::ConfigError;
using AgentHookConfigurator::InstallState;
using Status = AgentProviderConnectionStatus;

std::string named(std::string_view before, AgentKind provider, std::string_view after) {
  std::string text(before);
  text += AgentProviderConnectionStore::settingsName(provider);
  text += after;
  return text;
}

std::string otherFailureNotice(AgentKind provider) {
  return named("Couldn't update the ", provider, " configuration.");
}

}  // namespace

std::string_view AgentProviderConnectionStore::configuredKey(AgentKind provider) {
  return provider == AgentKind::codex ? codexConfiguredKey : claudeConfiguredKey;
}

std::string_view AgentProviderConnectionStore::settingsName(AgentKind provider) {
  return provider == AgentKind::codex ? "Codex" : "Claude";
}

std::string AgentProviderConnectionStore::settingsPath(AgentKind provider, std::string_view homeDirectory) {
  return std::string(homeDirectory) + (provider == AgentKind::codex ? "/.codex/hooks.json" : "/.claude/settings.json");
}

std::string AgentProviderConnectionStore::failureNotice(const ConfigError& error, AgentKind provider) {
  switch (error.kind) {
    case ConfigError::Kind::fileIsSymlink:
      return named("The ", provider, " settings file is a symlink — Tidewatch only edits regular files.");
    case ConfigError::Kind::notARegularFile:
      return named("The ", provider, " settings path isn't a regular file.");
    case ConfigError::Kind::notOwnedByCurrentUser:
      return named("The ", provider, " settings file isn't owned by you — fix its ownership, then retry.");
    case ConfigError::Kind::malformedJSON:
      return named("The ", provider,
                   " settings file contains invalid JSON. Tidewatch won't overwrite it — fix the file, then retry.");
    case ConfigError::Kind::concurrentModification:
      return named("The ", provider,
                   " settings file changed while Tidewatch was updating it. Nothing was written — retry.");
    case ConfigError::Kind::unwritable:
      break;
  }
  return named("Couldn't update the ", provider, " configuration: ") + error.reason;
}

std::string_view AgentProviderConnectionStore::word(Action action) {
  switch (action) {
    case Action::connect:
      return "Connect";
    case Action::repair:
      return "Repair";
    case Action::testRelay:
      return "Test relay";
    case Action::disconnect:
      return "Disconnect";
    case Action::retry:
      return "Retry";
  }
  return {};
}

AgentProviderConnectionStore::AgentProviderConnectionStore(Environment environment)
    : environment_(std::move(environment)) {}

AgentHookPaths AgentProviderConnectionStore::standardPaths() const {
  return AgentHookPaths::standard(environment_.hookPaths);
}

const std::set<std::string>& AgentProviderConnectionStore::ownedCommands() {
  if (!ownedCommands_) {
    const auto candidates = AgentHookPaths::candidates(environment_.hookPaths);
    ownedCommands_ = AgentHookCommand::ownedCommandSet(
        {candidates.preferred.socketPath, candidates.fallback.socketPath}, environment_.installation);
  }
  return *ownedCommands_;
}

std::vector<AgentHookConfigurator::DesiredEntry> AgentProviderConnectionStore::desiredEntries(
    AgentKind provider) const {
  const std::string socketPath = standardPaths().socketPath;
  const std::string& application = environment_.installation.applicationExecutable;
  return provider == AgentKind::codex ? CodexHookConfigurator::desiredEntries(socketPath, application)
                                      : ClaudeHookConfigurator::desiredEntries(socketPath, application);
}

void AgentProviderConnectionStore::changed() {
  if (onChange) onChange();
}

bool AgentProviderConnectionStore::isConfigured(AgentKind provider) const {
  return environment_.defaults.boolForKey(std::string(configuredKey(provider)));
}

bool AgentProviderConnectionStore::isRunningFromInstalledLocation() const {
  return environment_.bundlePath == environment_.installation.installedLocation;
}

Status AgentProviderConnectionStore::status(AgentKind provider) {
  if (!isRunningFromInstalledLocation()) {
    return Status::unavailable("Tidewatch must run from " + environment_.installation.installationDirectory +
                               " to receive agent events.");
  }
  if (!isConfigured(provider)) return Status::of(Status::Kind::notConfigured);
  const InstallState state =
      AgentHookConfigurator::inspect(settingsPath(provider, environment_.homeDirectory), desiredEntries(provider),
                                     ownedCommands(), environment_.files);
  switch (state.kind) {
    case InstallState::Kind::notInstalled:
      return Status::repairNeeded(named("Tidewatch's entries are missing from the ", provider,
                                        " settings — Repair reinstalls them, or Disconnect to stop listening."));
    case InstallState::Kind::installed:
      if (const auto seen = lastEventAt_.find(provider); seen != lastEventAt_.end())
        return Status::connected(seen->second);
      return Status::of(provider == AgentKind::claude ? Status::Kind::configuredAwaitingFirstEvent
                                                      : Status::Kind::configuredAwaitingTrust);
    case InstallState::Kind::outdated:
      return Status::repairNeeded("The installed entries are out of date — Repair updates only Tidewatch's own hooks.");
    case InstallState::Kind::malformed:
      return Status::unavailable(failureNotice(ConfigError::of(ConfigError::Kind::malformedJSON), provider));
    case InstallState::Kind::failed:
      break;
  }
  return Status::unavailable(failureNotice(state.error.value_or(ConfigError::unwritable({})), provider));
}

void AgentProviderConnectionStore::refresh() {
  std::vector<AgentProviderConnection> rebuilt;
  for (AgentKind provider : allAgentKinds) {
    rebuilt.push_back(AgentProviderConnection{provider, status(provider), isConfigured(provider)});
  }
  connections_ = std::move(rebuilt);
  changed();
}

AgentProviderConnection AgentProviderConnectionStore::connection(AgentKind provider) const {
  for (const auto& connection : connections_) {
    if (connection.provider == provider) return connection;
  }
  return AgentProviderConnection{provider, Status::of(Status::Kind::notConfigured), false};
}

void AgentProviderConnectionStore::connect(AgentKind provider) {
  actionNotice_.reset();
  try {
    const std::string path = settingsPath(provider, environment_.homeDirectory);
    const auto desired = desiredEntries(provider);
    const auto& owned = ownedCommands();
    const auto& files = environment_.files;

    std::optional<ConfigError> error;
    auto read = AgentHookConfigurator::readIfPresent(path, files);
    if (!read.hasValue()) {
      error = read.error();
    } else {
      const auto& snapshot = read.value();
      nlohmann::json root = snapshot ? snapshot->root : nlohmann::json::object();
      if (snapshot) AgentHookConfigurator::removeTidewatchEntries(root, owned);
      error = AgentHookConfigurator::append(desired, root);
      if (!error) error = AgentHookConfigurator::writeAtomically(root, path, snapshot, files);
    }
    if (error) {
      actionNotice_ = failureNotice(*error, provider);  // the key stays as it was
    } else if (!environment_.defaults.set(std::string(configuredKey(provider)), true)) {
      actionNotice_ = otherFailureNotice(provider);
    }
  } catch (const std::exception&) {
    actionNotice_ = otherFailureNotice(provider);
  }
  refresh();
  if (onConfiguredChange) onConfiguredChange();
}

void AgentProviderConnectionStore::disconnect(AgentKind provider) {
  if (!environment_.defaults.set(std::string(configuredKey(provider)), false)) {
    actionNotice_ = otherFailureNotice(provider);
  } else {
    actionNotice_.reset();
  }
  lastEventAt_.erase(provider);
  try {
    const std::string path = settingsPath(provider, environment_.homeDirectory);
    std::optional<ConfigError> error;
    auto read = AgentHookConfigurator::readIfPresent(path, environment_.files);
    if (!read.hasValue()) {
      error = read.error();
    } else if (auto& snapshot = read.value()) {
      // Written even when none of the program's entries were found.
      nlohmann::json root = snapshot->root;
      AgentHookConfigurator::removeTidewatchEntries(root, ownedCommands());
      error = AgentHookConfigurator::writeAtomically(root, path, snapshot, environment_.files);
    }
    if (error) {
      actionNotice_ =
          named("Disconnected locally, but Tidewatch's entries may remain in the ", provider, " settings: ") +
          failureNotice(*error, provider);
    }
  } catch (const std::exception&) {
    actionNotice_ = named("Disconnected locally, but couldn't clean up the ", provider, " settings file.");
  }
  refresh();
  if (onConfiguredChange) onConfiguredChange();
}

void AgentProviderConnectionStore::testRelay(AgentKind provider) {
  AgentHookProtocol::Envelope envelope;
  envelope.protocolVersion = AgentHookProtocol::protocolVersion;
  envelope.provider = provider;
  envelope.event = AgentHookProtocol::EventKind::connectionTest;
  envelope.sessionID = std::string(AgentHookRelay::connectionTestSessionID);
  envelope.parentPID = 0;
  auto bytes = AgentHookProtocol::encode(envelope);
  if (!bytes) {
    lastTestResult_ = TestResult{provider, false, environment_.now()};
    changed();
    return;
  }
  std::weak_ptr<bool> alive = alive_;
  environment_.sendInBackground(std::move(*bytes), standardPaths().socketPath, testTimeoutSeconds,
                                [this, alive, provider](bool sent) {
                                  if (alive.expired() || sent) return;
                                  lastTestResult_ = TestResult{provider, false, environment_.now()};
                                  changed();
                                });
}

void AgentProviderConnectionStore::recordEnvelope(const AgentHookProtocol::Envelope& envelope, Date at) {
  if (envelope.event == AgentHookProtocol::EventKind::connectionTest) {
    lastTestResult_ = TestResult{envelope.provider, true, at};
  } else {
    lastEventAt_[envelope.provider] = at;
  }
  refresh();
}

void AgentProviderConnectionStore::setReceiverFailure(std::optional<std::string> failure) {
  receiverFailure_ = std::move(failure);
  changed();
}

std::string AgentProviderConnectionStore::caption(const AgentProviderConnection& connection,
                                                  const std::function<std::string(Date)>& formatTime) const {
  const AgentKind provider = connection.provider;
  switch (connection.status.kind) {
    case Status::Kind::notConfigured:
      return std::string("Not connected. Connect installs Tidewatch's event hooks in your ") +
             (provider == AgentKind::codex ? "~/.codex" : "~/.claude") + " settings.";
    case Status::Kind::configuredAwaitingTrust:
      return "Installed — approve Tidewatch's hooks in Codex's hook-trust prompt to finish connecting.";
    case Status::Kind::configuredAwaitingFirstEvent:
      return named("", provider, " is configured and waiting for its first trusted event.");
    case Status::Kind::connected: {
      std::string text = "Connected · last event at ";
      if (connection.status.lastEventAt && formatTime) text += formatTime(*connection.status.lastEventAt);
      return text;
    }
    case Status::Kind::repairNeeded:
    case Status::Kind::unavailable:
      break;
  }
  return connection.status.reason;
}

std::vector<AgentProviderConnectionStore::Action> AgentProviderConnectionStore::actions(
    const AgentProviderConnection& connection) const {
  std::vector<Action> result;
  if (connection.status.kind == Status::Kind::notConfigured ||
      (!connection.locallyEnabled && connection.status.kind == Status::Kind::unavailable)) {
    result.push_back(Action::connect);
  }
  if (connection.status.kind == Status::Kind::repairNeeded) result.push_back(Action::repair);
  if (connection.locallyEnabled) {
    result.push_back(Action::testRelay);
    result.push_back(Action::disconnect);
  }
  return result;
}

std::optional<std::string> AgentProviderConnectionStore::connectBlockedNotice() const {
  if (isRunningFromInstalledLocation()) return std::nullopt;
  return "Move Tidewatch to " + environment_.installation.installationDirectory + ", then connect.";
}

std::optional<std::string> AgentProviderConnectionStore::testResultLine(AgentKind provider) const {
  if (!lastTestResult_ || lastTestResult_->provider != provider) return std::nullopt;
  return std::string(lastTestResult_->succeeded ? "Relay test passed — the socket and app are reachable."
                                                : "Relay test failed — Tidewatch's socket isn't reachable.");
}

std::optional<std::string> AgentProviderConnectionStore::receiverFailureLine() const {
  if (!receiverFailure_) return std::nullopt;
  return "Configured, but not receiving events — " + *receiverFailure_;
}

}  // namespace tidewatch
