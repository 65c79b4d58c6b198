// Builds listener rows for the list model, the sorter, the scan session and the reports, with
// only the fields a case cares about set.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tidewatch_kit/listener_records.h"

namespace tidewatch::testing {

class Row {
 public:
  Row(int32_t pid, int port) {
    listener_.port = port;
    listener_.identity.port = port;
    bound({{"127.0.0.1", AddressFamily::ipv4, port}});
    identity({pid, 1'700'000'000, 0});
  }

  Row& bound(std::vector<BoundEndpoint> endpoints) {
    listener_.endpoints = std::move(endpoints);
    listener_.bindScope = makeBindScope(listener_.endpoints);
    listener_.bindSignature = listener_.identity.bindSignature = BindSignature::make(listener_.endpoints);
    return *this;
  }

  Row& identity(ProcessIdentity identity) {
    listener_.process.identity = identity;
    listener_.identity.process = identity;
    return *this;
  }
  Row& started(uint64_t seconds, uint32_t microseconds = 0) {
    return identity({listener_.process.identity.pid, seconds, microseconds});
  }
  Row& path(std::string path) {
    listener_.process.name = lastPathComponent(path);
    listener_.process.executablePath = std::move(path);
    return *this;
  }
  Row& name(std::string name) {
    listener_.process.name = std::move(name);
    return *this;
  }
  Row& argv(std::vector<std::string> argv) {
    listener_.process.argv = std::move(argv);
    return *this;
  }
  Row& memory(uint64_t bytes) {
    listener_.process.residentMemoryBytes = bytes;
    return *this;
  }
  Row& cpu(uint64_t nanos) {
    listener_.process.cpuTimeNanos = nanos;
    return *this;
  }
  Row& hidden() {
    listener_.visibility = VisibilityClass::hiddenSystemBackground;
    return *this;
  }
  Row& visibility(VisibilityClass visibility) {
    listener_.visibility = visibility;
    return *this;
  }
  Row& classified(std::optional<Runtime> runtime, std::optional<Framework> framework, std::string label,
                  std::optional<KnownService> service = std::nullopt) {
    listener_.classification = {runtime, framework, service, Confidence::high, std::move(label)};
    return *this;
  }
  Row& agent(AgentKind kind) {
    listener_.agentOrigin = kind;
    listener_.agentProcess = AgentProcessIdentity{{listener_.process.identity.pid - 1, 1, 0}, kind};
    return *this;
  }
  Row& host(HostAppKind kind) {
    listener_.host = AgentHost{kind};
    return *this;
  }
  Row& project(std::string name, std::optional<std::string> path) {
    listener_.project = ListenerProject{std::move(name), std::move(path)};
    return *this;
  }
  Row& pool(int size) {
    listener_.workerPoolSize = size;
    listener_.identity.isPool = size > 1;
    listener_.identity.executablePath = listener_.process.executablePath;
    return *this;
  }

  operator PortListener() const { return listener_; }  // NOLINT: rows read best as plain values

 private:
  PortListener listener_;
};

inline std::vector<int32_t> pids(const std::vector<PortListener>& listeners) {
  std::vector<int32_t> result;
  for (const auto& listener : listeners) result.push_back(listener.process.identity.pid);
  return result;
}

}  // namespace tidewatch::testing
