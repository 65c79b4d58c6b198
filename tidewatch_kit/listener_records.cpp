#include "tidewatch_kit/listener_records.h"
#include "process_core/raw_values.h"

#include <algorithm>
#include <array>

namespace tidewatch {

bool BoundEndpoint::isLoopback() const {
  return address == "::1" || address == "127.0.0.1" || address.starts_with("127.");
}

bool BoundEndpoint::isAllInterfaces() const { return address == "0.0.0.0" || address == "::"; }

namespace {

struct ScopeWords {
  std::string_view raw;
  std::string_view badge;
  std::string_view help;
};

constexpr std::array<ScopeWords, 5> scopeWords{{
    {"loopbackOnly", "localhost", "Reachable from this Mac only."},
    {"allInterfaces", "All Interfaces",
     "Bound on every interface; other devices on your network may be able to reach it."},
    {"specificInterface", "interface",
     "Bound to a specific interface; other devices may be able to reach it."},
    {"mixed", "mixed", "Uses loopback and non-loopback addresses; other devices may be able to reach it."},
    {"unknown", "unknown", "Tidewatch could not determine this listener's bind scope."},
}};

constexpr std::array<std::string_view, 3> visibilityRaws{"defaultVisible", "hiddenSystemBackground",
                                                        "unavailable"};

constexpr std::array<std::string_view, 6> runtimeRaws{"node", "python", "ruby", "go", "bun", "deno"};
constexpr std::array<std::string_view, 6> runtimeNames{"Node", "Python", "Ruby", "Go", "Bun", "Deno"};
constexpr std::array<std::string_view, 12> frameworkRaws{"vite",    "next",    "nuxt",     "cra",
                                                         "webpack", "flask",   "django",   "fastapi",
                                                         "uvicorn", "gunicorn", "rails",   "puma"};
constexpr std::array<std::string_view, 12> frameworkNames{"Vite",    "Next.js", "Nuxt",    "Create React App",
                                                          "webpack", "Flask",   "Django",  "FastAPI",
                                                          "Uvicorn", "Gunicorn", "Rails",  "Puma"};
constexpr std::array<std::string_view, 5> serviceRaws{"postgres", "mysql", "redis", "mongodb", "docker"};
constexpr std::array<std::string_view, 5> serviceNames{"Postgres", "MySQL", "Redis", "MongoDB", "Docker"};
constexpr std::array<std::string_view, 4> confidenceRaws{"high", "medium", "low", "unknown"};

}  // namespace

std::string_view rawValue(BindScope scope) { return scopeWords[static_cast<size_t>(scope)].raw; }
std::string_view badgeWord(BindScope scope) { return scopeWords[static_cast<size_t>(scope)].badge; }
std::string_view helpText(BindScope scope) { return scopeWords[static_cast<size_t>(scope)].help; }

std::optional<BindScope> bindScopeFromRaw(std::string_view raw) {
  for (size_t i = 0; i < scopeWords.size(); ++i) {
    if (scopeWords[i].raw == raw) return static_cast<BindScope>(i);
  }
  return std::nullopt;
}

BindScope makeBindScope(const std::vector<BoundEndpoint>& endpoints) {
  if (endpoints.empty()) return BindScope::unknown;
  bool anyAll = false, anyLoopback = false, anySpecific = false;
  for (const auto& endpoint : endpoints) {
    if (endpoint.isAllInterfaces()) {
      anyAll = true;
    } else if (endpoint.isLoopback()) {
      anyLoopback = true;
    } else {
      anySpecific = true;
    }
  }
  if (anyAll) return BindScope::allInterfaces;
  if (anySpecific && anyLoopback) return BindScope::mixed;
  if (anySpecific) return BindScope::specificInterface;
  return BindScope::loopbackOnly;
}

std::string BindSignature::stableKey(const Token& token) {
  if (std::holds_alternative<Loopback>(token)) return "0";
  if (std::holds_alternative<AllInterfaces>(token)) return "1";
  return "2:" + std::get<Specific>(token).address;
}

BindSignature BindSignature::make(const std::vector<BoundEndpoint>& endpoints) {
  // Keyed by stable key: byte order of UTF-8 is the order of Unicode scalar values.
  std::map<std::string, Token> byKey;
  for (const auto& endpoint : endpoints) {
    Token token = endpoint.isLoopback()        ? Token{Loopback{}}
                  : endpoint.isAllInterfaces() ? Token{AllInterfaces{}}
                                               : Token{Specific{endpoint.address}};
    byKey.emplace(stableKey(token), std::move(token));
  }
  BindSignature signature;
  signature.tokens.reserve(byKey.size());
  for (auto& [key, token] : byKey) signature.tokens.push_back(std::move(token));
  return signature;
}

std::string_view rawValue(VisibilityClass visibility) {
  return visibilityRaws[static_cast<size_t>(visibility)];
}

std::optional<VisibilityClass> visibilityClassFromRaw(std::string_view raw) {
  return enumFromRaw<VisibilityClass>(visibilityRaws, raw);
}

std::string ListenerIdentity::stableID() const {
  std::string id = isPool ? "pool" : "proc";
  id += ':' + std::to_string(process.pid);
  id += ':' + std::to_string(process.startTimeSeconds) + '.' + std::to_string(process.startTimeMicroseconds);
  id += ":TCP:" + std::to_string(port) + ':';
  for (size_t i = 0; i < bindSignature.tokens.size(); ++i) {
    if (i > 0) id += ',';
    id += BindSignature::stableKey(bindSignature.tokens[i]);
  }
  if (executablePath) id += ':' + *executablePath;
  return id;
}

std::string_view rawValue(Runtime value) { return runtimeRaws[static_cast<size_t>(value)]; }
std::string_view displayName(Runtime value) { return runtimeNames[static_cast<size_t>(value)]; }
std::string_view rawValue(Framework value) { return frameworkRaws[static_cast<size_t>(value)]; }
std::string_view displayName(Framework value) { return frameworkNames[static_cast<size_t>(value)]; }
std::string_view rawValue(KnownService value) { return serviceRaws[static_cast<size_t>(value)]; }
std::string_view displayName(KnownService value) { return serviceNames[static_cast<size_t>(value)]; }
std::string_view rawValue(Confidence value) { return confidenceRaws[static_cast<size_t>(value)]; }

std::optional<Runtime> runtimeFromRaw(std::string_view raw) { return enumFromRaw<Runtime>(runtimeRaws, raw); }
std::optional<Framework> frameworkFromRaw(std::string_view raw) { return enumFromRaw<Framework>(frameworkRaws, raw); }
std::optional<KnownService> knownServiceFromRaw(std::string_view raw) {
  return enumFromRaw<KnownService>(serviceRaws, raw);
}
std::optional<Confidence> confidenceFromRaw(std::string_view raw) {
  return enumFromRaw<Confidence>(confidenceRaws, raw);
}

std::optional<FocusTarget> AgentProcessPresence::focusTarget() const {
  if (!host) return std::nullopt;
  return FocusTarget{host->identity.pid, host->displayName};
}

int AgentProcessPresenceSnapshot::count(AgentKind kind) const {
  return static_cast<int>(
      std::count_if(entries.begin(), entries.end(), [kind](const auto& e) { return e.provider == kind; }));
}

std::vector<PortListener> ScanResult::visible() const {
  std::vector<PortListener> rows;
  std::copy_if(listeners.begin(), listeners.end(), std::back_inserter(rows),
               [](const auto& l) { return l.visibility == VisibilityClass::defaultVisible; });
  return rows;
}

std::vector<PortListener> ScanResult::hidden() const {
  std::vector<PortListener> rows;
  std::copy_if(listeners.begin(), listeners.end(), std::back_inserter(rows),
               [](const auto& l) { return l.visibility == VisibilityClass::hiddenSystemBackground; });
  return rows;
}

int ScanResult::hiddenCount() const {
  return static_cast<int>(std::count_if(listeners.begin(), listeners.end(), [](const auto& l) {
    return l.visibility == VisibilityClass::hiddenSystemBackground;
  }));
}

}  // namespace tidewatch
