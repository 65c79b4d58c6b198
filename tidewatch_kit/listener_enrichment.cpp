#include "tidewatch_kit/listener_enrichment.h"
#include "process_core/text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace tidewatch {
namespace {

template <size_t N>
bool isOneOf(std::string_view text, const std::array<std::string_view, N>& words) {
  return std::find(words.begin(), words.end(), text) != words.end();
}

constexpr std::array<std::string_view, 6> optOutArguments{"--no-https", "--no-ssl",  "--no-tls",
                                                          "https=false", "ssl=false", "tls=false"};
constexpr std::array<std::string_view, 9> optInArguments{"--https",  "--ssl",     "--tls",
                                                         "--secure", "https=true", "ssl=true",
                                                         "tls=true", "--scheme=https", "--protocol=https"};
constexpr std::array<std::string_view, 9> certificateKeys{"--cert",     "--certificate", "--key",
                                                          "--ssl-cert", "--ssl-key",     "--tls-cert",
                                                          "--tls-key",  "--https-cert",  "--https-key"};

// The text before the first "=", leading "=" signs skipped; the whole text when nothing is left.
std::string_view argumentKey(std::string_view text) {
  const size_t start = text.find_first_not_of('=');
  if (start == std::string_view::npos) return text;
  const size_t end = text.find('=', start);
  return text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
}

bool optsIntoHTTPS(std::string_view lowered) {
  const std::string_view text = trimmedWhitespace(lowered);
  if (text.find("https://") != std::string_view::npos) return true;
  if (isOneOf(text, optInArguments)) return true;
  return isOneOf(argumentKey(text), certificateKeys);
}

bool isDNSName(std::string_view host) {
  if (host.empty() || host.size() > 253) return false;
  size_t start = 0;
  std::string_view lastLabel;
  while (start <= host.size()) {
    size_t end = host.find('.', start);
    if (end == std::string_view::npos) end = host.size();
    const std::string_view label = host.substr(start, end - start);
    if (label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-') return false;
    for (unsigned char c : label) {
      if (!std::isalnum(c) && c != '-') return false;
    }
    lastLabel = label;
    start = end + 1;
  }
  // A name ending in a number would be read as an IPv4 address, and it is not a valid one.
  return !std::all_of(lastLabel.begin(), lastLabel.end(), [](unsigned char c) { return std::isdigit(c); });
}

}  // namespace

namespace ListenerEnrichment {

std::optional<AgentKind> Result::agentOrigin() const {
  if (!agentProcess) return std::nullopt;
  return agentProcess->kind;
}

Result enrich(const ProcessSnapshot& owner, int32_t tidewatchPID, const LookupSnapshot& lookupSnapshot,
              const ProjectResolver::PathExists& directoryExists, const ProjectResolver::CWDForPID& cwdForPID,
              const std::string& homeDirectory) {
  const ProcessAncestryFacts facts = ProcessAncestry::resolve(owner, tidewatchPID, lookupSnapshot);
  Result result;
  if (auto seed = ProjectResolver::seedDirectory(owner, cwdForPID, directoryExists)) {
    result.project = ProjectResolver::resolve(*seed, directoryExists, homeDirectory);
  }
  result.agentProcess = facts.attributingAgentProcess;
  if (facts.hostApp) {
    result.host = AgentHost{facts.hostApp->kind};
    result.focusTarget = FocusTarget{facts.hostApp->identity.pid, facts.hostApp->displayName};
  }
  result.isInTidewatchSubtree = facts.isInProtectedSubtree;
  return result;
}

}  // namespace ListenerEnrichment

namespace FocusTargetResolver {

FocusResolution resolve(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot,
                        const std::function<bool(int32_t pid)>& isRunning) {
  auto host = ProcessAncestry::nearestHostApp(owner, lookupSnapshot);
  if (!host) return FocusResolution::unavailable(std::string(noHostReason));
  if (!isRunning(host->identity.pid)) return FocusResolution::unavailable(host->displayName + " isn’t running.");
  return FocusResolution::available(host->identity.pid, host->displayName);
}

std::optional<FocusTarget> resolveHostTarget(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot) {
  auto host = ProcessAncestry::nearestHostApp(owner, lookupSnapshot);
  if (!host) return std::nullopt;
  return FocusTarget{host->identity.pid, host->displayName};
}

}  // namespace FocusTargetResolver

namespace ListenerURLResolver {

std::string scheme(int port, const std::optional<std::vector<std::string>>& argv) {
  std::vector<std::string> arguments;
  if (argv) {
    arguments.reserve(argv->size());
    for (const auto& argument : *argv) arguments.push_back(asciiLowercased(argument));
  }
  // An explicit opt-out wins, even on a conventional HTTPS port.
  for (const auto& argument : arguments) {
    if (isOneOf(trimmedWhitespace(argument), optOutArguments)) return "http";
  }
  if (conventionalHTTPSPorts.contains(port)) return "https";
  for (const auto& argument : arguments) {
    if (optsIntoHTTPS(argument)) return "https";
  }
  return "http";
}

bool isValidHost(const std::string& host) {
  if (host == "localhost") return true;
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    const std::string inner = host.substr(1, host.size() - 2);
    in6_addr address{};
    return ::inet_pton(AF_INET6, inner.c_str(), &address) == 1;
  }
  in_addr address{};
  if (::inet_pton(AF_INET, host.c_str(), &address) == 1) return true;
  return isDNSName(host);
}

}  // namespace ListenerURLResolver

std::optional<std::string> openableURL(const PortListener& listener) {
  if (listener.port < 0 || listener.port > 65535) return std::nullopt;
  const std::string scheme = ListenerURLResolver::scheme(listener.port, listener.process.argv);
  const auto& endpoints = listener.endpoints;
  std::string host = "localhost";
  const bool anyLoopback =
      std::any_of(endpoints.begin(), endpoints.end(), [](const BoundEndpoint& e) { return e.isLoopback(); });
  if (!anyLoopback) {
    auto specific = std::find_if(endpoints.begin(), endpoints.end(),
                                 [](const BoundEndpoint& e) { return !e.isAllInterfaces(); });
    if (specific != endpoints.end()) {
      host = specific->family == AddressFamily::ipv6 ? "[" + specific->address + "]" : specific->address;
    }
  }
  if (!ListenerURLResolver::isValidHost(host)) return std::nullopt;
  return scheme + "://" + host + ":" + std::to_string(listener.port);
}

}  // namespace tidewatch
