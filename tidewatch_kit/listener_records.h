// What a scan produces: rows of listening ports and their annotations. Immutable values.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch {

struct BoundEndpoint {
  std::string address;
  AddressFamily family = AddressFamily::ipv4;
  int port = 0;

  // "::1", "127.0.0.1" or any "127." address. An IPv4-mapped loopback counts as specific.
  bool isLoopback() const;
  // "0.0.0.0" or "::".
  bool isAllInterfaces() const;

  friend bool operator==(const BoundEndpoint&, const BoundEndpoint&) = default;
};

enum class BindScope { loopbackOnly, allInterfaces, specificInterface, mixed, unknown };
std::string_view rawValue(BindScope scope);
std::optional<BindScope> bindScopeFromRaw(std::string_view raw);
std::string_view badgeWord(BindScope scope);
std::string_view helpText(BindScope scope);
BindScope makeBindScope(const std::vector<BoundEndpoint>& endpoints);

struct BindSignature {
  struct Loopback {
    friend bool operator==(const Loopback&, const Loopback&) = default;
  };
  struct AllInterfaces {
    friend bool operator==(const AllInterfaces&, const AllInterfaces&) = default;
  };
  struct Specific {
    std::string address;
    friend bool operator==(const Specific&, const Specific&) = default;
  };
  using Token = std::variant<Loopback, AllInterfaces, Specific>;

  std::vector<Token> tokens;  // sorted by stable key, no duplicates

  static BindSignature make(const std::vector<BoundEndpoint>& endpoints);
  // "0" loopback, "1" all interfaces, "2:<address>" specific.
  static std::string stableKey(const Token& token);

  friend bool operator==(const BindSignature&, const BindSignature&) = default;
};

enum class PortProtocol { tcp };
enum class PortState { listen };

enum class VisibilityClass { defaultVisible, hiddenSystemBackground, unavailable };
std::string_view rawValue(VisibilityClass visibility);
std::optional<VisibilityClass> visibilityClassFromRaw(std::string_view raw);

struct ListenerIdentity {
  ProcessIdentity process;
  PortProtocol proto = PortProtocol::tcp;
  int port = 0;
  BindSignature bindSignature;
  bool isPool = false;
  std::optional<std::string> executablePath;  // pools only

  // "pool|proc:<pid>:<sec>.<usec>:TCP:<port>:<token keys>[:<path>]"
  std::string stableID() const;

  friend bool operator==(const ListenerIdentity&, const ListenerIdentity&) = default;
};

enum class Runtime { node, python, ruby, go, bun, deno };
enum class Framework { vite, next, nuxt, cra, webpack, flask, django, fastapi, uvicorn, gunicorn, rails, puma };
enum class KnownService { postgres, mysql, redis, mongodb, docker };
enum class Confidence { high, medium, low, unknown };

std::string_view rawValue(Runtime value);
std::string_view displayName(Runtime value);
std::string_view rawValue(Framework value);
std::string_view displayName(Framework value);
std::string_view rawValue(KnownService value);
std::string_view displayName(KnownService value);
std::string_view rawValue(Confidence value);
std::optional<Runtime> runtimeFromRaw(std::string_view raw);
std::optional<Framework> frameworkFromRaw(std::string_view raw);
std::optional<KnownService> knownServiceFromRaw(std::string_view raw);
std::optional<Confidence> confidenceFromRaw(std::string_view raw);

struct ServiceClassification {
  std::optional<Runtime> runtime;
  std::optional<Framework> framework;
  std::optional<KnownService> service;
  Confidence confidence = Confidence::unknown;
  std::string label = "Unknown";

  static ServiceClassification unknown() { return {}; }

  friend bool operator==(const ServiceClassification&, const ServiceClassification&) = default;
};

struct ListenerProject {
  std::string name;
  std::optional<std::string> path;
  friend bool operator==(const ListenerProject&, const ListenerProject&) = default;
};

struct AgentHost {
  HostAppKind kind = HostAppKind::terminal;
  friend bool operator==(const AgentHost&, const AgentHost&) = default;
};

struct FocusTarget {
  int32_t pid = 0;
  std::string displayName;
  friend bool operator==(const FocusTarget&, const FocusTarget&) = default;
};

struct PortListener {
  ListenerIdentity identity;
  int port = 0;
  PortProtocol proto = PortProtocol::tcp;
  PortState state = PortState::listen;
  std::vector<BoundEndpoint> endpoints;
  BindScope bindScope = BindScope::unknown;
  BindSignature bindSignature;
  ProcessSnapshot process;
  int workerPoolSize = 1;
  std::optional<ProcessIdentity> parentIdentity;
  VisibilityClass visibility = VisibilityClass::defaultVisible;
  ServiceClassification classification;
  std::optional<AgentKind> agentOrigin;
  std::optional<AgentProcessIdentity> agentProcess;
  std::optional<AgentHost> host;
  std::optional<ListenerProject> project;
  std::optional<FocusTarget> focusTarget;
  bool isInTidewatchSubtree = false;

  std::string id() const { return identity.stableID(); }
  bool isWorkerPool() const { return workerPoolSize > 1; }

  friend bool operator==(const PortListener&, const PortListener&) = default;
};

struct AgentProcessPresence {
  AgentProcessIdentity identity;
  AgentKind provider = AgentKind::codex;
  std::optional<HostAppOccurrence> host;
  std::optional<std::string> projectName;
  Date detectedAt;

  std::optional<FocusTarget> focusTarget() const;

  friend bool operator==(const AgentProcessPresence&, const AgentProcessPresence&) = default;
};

struct AgentProcessPresenceSnapshot {
  std::vector<AgentProcessPresence> entries;

  static AgentProcessPresenceSnapshot empty() { return {}; }
  int count(AgentKind kind) const;
  int codexCount() const { return count(AgentKind::codex); }
  int claudeCount() const { return count(AgentKind::claude); }
  int totalCount() const { return static_cast<int>(entries.size()); }

  friend bool operator==(const AgentProcessPresenceSnapshot&, const AgentProcessPresenceSnapshot&) = default;
};

// A listening socket of another user: its process cannot be read, so it is no row, but its port
// is taken all the same ("why is 5432 missing?").
struct OtherUserListener {
  int port = 0;
  AddressFamily family = AddressFamily::ipv4;
  std::string address;
  uint32_t uid = 0;
  std::string userName;  // from the password database, else the uid in decimal

  friend bool operator==(const OtherUserListener&, const OtherUserListener&) = default;
  friend auto operator<=>(const OtherUserListener&, const OtherUserListener&) = default;
};

struct ScanResult {
  std::vector<PortListener> listeners;  // engine order, not a display order
  AgentProcessPresenceSnapshot agentPresence;
  Date scannedAt;
  int processCount = 0;
  std::vector<OtherUserListener> otherUserListeners;  // by port, then address

  std::vector<PortListener> visible() const;
  std::vector<PortListener> hidden() const;
  int hiddenCount() const;
};

}  // namespace tidewatch
