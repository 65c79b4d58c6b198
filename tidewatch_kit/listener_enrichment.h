// Gives a row its context: the agent it descends from, its host application, its project and what
// to bring to the front; and the address a row opens in the browser.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

#include "process_core/process_ancestry.h"
#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/project_resolver.h"

namespace tidewatch {

namespace ListenerEnrichment {

struct Result {
  std::optional<AgentProcessIdentity> agentProcess;
  std::optional<AgentHost> host;
  std::optional<ListenerProject> project;
  std::optional<FocusTarget> focusTarget;
  bool isInTidewatchSubtree = false;

  std::optional<AgentKind> agentOrigin() const;

  friend bool operator==(const Result&, const Result&) = default;
};

Result enrich(const ProcessSnapshot& owner, int32_t tidewatchPID, const LookupSnapshot& lookupSnapshot,
              const ProjectResolver::PathExists& directoryExists, const ProjectResolver::CWDForPID& cwdForPID,
              const std::string& homeDirectory);

}  // namespace ListenerEnrichment

// Either a host application that can be activated, or the reason why there is none.
struct FocusResolution {
  struct Available {
    int32_t pid = 0;
    std::string displayName;
    friend bool operator==(const Available&, const Available&) = default;
  };
  struct Unavailable {
    std::string reason;
    friend bool operator==(const Unavailable&, const Unavailable&) = default;
  };

  std::variant<Available, Unavailable> value;

  static FocusResolution available(int32_t pid, std::string displayName) {
    return {Available{pid, std::move(displayName)}};
  }
  static FocusResolution unavailable(std::string reason) { return {Unavailable{std::move(reason)}}; }

  bool isAvailable() const { return std::holds_alternative<Available>(value); }

  friend bool operator==(const FocusResolution&, const FocusResolution&) = default;
};

namespace FocusTargetResolver {

inline constexpr std::string_view noHostReason = "No host app found for this listener.";

// The nearest host application if it is still running, else why not.
FocusResolution resolve(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot,
                        const std::function<bool(int32_t pid)>& isRunning);

// The nearest host application, without asking whether it runs.
std::optional<FocusTarget> resolveHostTarget(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot);

}  // namespace FocusTargetResolver

namespace ListenerURLResolver {

inline const std::unordered_set<int> conventionalHTTPSPorts{443, 4443, 5443, 7443, 8443, 9443, 10443};

// "http" or "https", from the arguments and the port only; an opt-out in the arguments wins.
std::string scheme(int port, const std::optional<std::vector<std::string>>& argv);

// Whether text is a host a URL may carry: an IPv4 dotted quad, a bracketed IPv6 address,
// or a DNS-like name.
bool isValidHost(const std::string& host);

}  // namespace ListenerURLResolver

// "<scheme>://<host>:<port>" for the row, with "localhost" for loopback or wildcard bindings;
// absent when the host is malformed.
std::optional<std::string> openableURL(const PortListener& listener);

}  // namespace tidewatch
