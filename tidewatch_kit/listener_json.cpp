#include "tidewatch_kit/listener_json.h"

namespace tidewatch {
namespace {

template <typename Enum, typename FromRaw>
Enum enumFromJSON(const nlohmann::json& j, FromRaw fromRaw, const char* typeName) {
  auto value = fromRaw(j.get<std::string>());
  if (!value) throwUnknownRawValue(j, typeName);
  return *value;
}

}  // namespace

void to_json(nlohmann::json& j, const BoundEndpoint& value) {
  j = nlohmann::json{{"address", value.address}, {"family", value.family}, {"port", value.port}};
}

void from_json(const nlohmann::json& j, BoundEndpoint& value) {
  j.at("address").get_to(value.address);
  j.at("family").get_to(value.family);
  j.at("port").get_to(value.port);
}

void to_json(nlohmann::json& j, BindScope value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, BindScope& value) {
  value = enumFromJSON<BindScope>(j, bindScopeFromRaw, "BindScope");
}

// Tokens are written as tagged objects: {"loopback":{}}, {"allInterfaces":{}},
// {"specific":{"_0":"<address>"}}.
void to_json(nlohmann::json& j, const BindSignature::Token& value) {
  if (std::holds_alternative<BindSignature::Loopback>(value)) {
    j = nlohmann::json{{"loopback", nlohmann::json::object()}};
  } else if (std::holds_alternative<BindSignature::AllInterfaces>(value)) {
    j = nlohmann::json{{"allInterfaces", nlohmann::json::object()}};
  } else {
    j = nlohmann::json{{"specific", {{"_0", std::get<BindSignature::Specific>(value).address}}}};
  }
}

void from_json(const nlohmann::json& j, BindSignature::Token& value) {
  if (!j.is_object() || j.size() != 1) throwUnknownRawValue(j, "BindSignature.Token");
  if (j.contains("loopback")) {
    value = BindSignature::Loopback{};
  } else if (j.contains("allInterfaces")) {
    value = BindSignature::AllInterfaces{};
  } else if (j.contains("specific")) {
    value = BindSignature::Specific{j.at("specific").at("_0").get<std::string>()};
  } else {
    throwUnknownRawValue(j, "BindSignature.Token");
  }
}

void to_json(nlohmann::json& j, const BindSignature& value) {
  j = nlohmann::json{{"tokens", value.tokens}};
}

void from_json(const nlohmann::json& j, BindSignature& value) { j.at("tokens").get_to(value.tokens); }

void to_json(nlohmann::json& j, PortProtocol) { j = "TCP"; }
void from_json(const nlohmann::json& j, PortProtocol& value) {
  if (j.get<std::string>() != "TCP") throwUnknownRawValue(j, "PortProtocol");
  value = PortProtocol::tcp;
}

void to_json(nlohmann::json& j, PortState) { j = "LISTEN"; }
void from_json(const nlohmann::json& j, PortState& value) {
  if (j.get<std::string>() != "LISTEN") throwUnknownRawValue(j, "PortState");
  value = PortState::listen;
}

void to_json(nlohmann::json& j, VisibilityClass value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, VisibilityClass& value) {
  value = enumFromJSON<VisibilityClass>(j, visibilityClassFromRaw, "VisibilityClass");
}

void to_json(nlohmann::json& j, const ListenerIdentity& value) {
  j = nlohmann::json{{"process", value.process},
                     {"proto", value.proto},
                     {"port", value.port},
                     {"bindSignature", value.bindSignature},
                     {"isPool", value.isPool}};
  putOptional(j, "executablePath", value.executablePath);
}

void from_json(const nlohmann::json& j, ListenerIdentity& value) {
  j.at("process").get_to(value.process);
  j.at("proto").get_to(value.proto);
  j.at("port").get_to(value.port);
  j.at("bindSignature").get_to(value.bindSignature);
  j.at("isPool").get_to(value.isPool);
  getOptional(j, "executablePath", value.executablePath);
}

void to_json(nlohmann::json& j, Runtime value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, Runtime& value) {
  value = enumFromJSON<Runtime>(j, runtimeFromRaw, "Runtime");
}
void to_json(nlohmann::json& j, Framework value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, Framework& value) {
  value = enumFromJSON<Framework>(j, frameworkFromRaw, "Framework");
}
void to_json(nlohmann::json& j, KnownService value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, KnownService& value) {
  value = enumFromJSON<KnownService>(j, knownServiceFromRaw, "KnownService");
}
void to_json(nlohmann::json& j, Confidence value) { j = std::string(rawValue(value)); }
void from_json(const nlohmann::json& j, Confidence& value) {
  value = enumFromJSON<Confidence>(j, confidenceFromRaw, "Confidence");
}

void to_json(nlohmann::json& j, const ServiceClassification& value) {
  j = nlohmann::json::object();
  putOptional(j, "runtime", value.runtime);
  putOptional(j, "framework", value.framework);
  putOptional(j, "service", value.service);
  j["confidence"] = value.confidence;
  j["label"] = value.label;
}

void from_json(const nlohmann::json& j, ServiceClassification& value) {
  getOptional(j, "runtime", value.runtime);
  getOptional(j, "framework", value.framework);
  getOptional(j, "service", value.service);
  j.at("confidence").get_to(value.confidence);
  j.at("label").get_to(value.label);
}

void to_json(nlohmann::json& j, const ListenerProject& value) {
  j = nlohmann::json{{"name", value.name}};
  putOptional(j, "path", value.path);
}

void from_json(const nlohmann::json& j, ListenerProject& value) {
  j.at("name").get_to(value.name);
  getOptional(j, "path", value.path);
}

void to_json(nlohmann::json& j, const AgentHost& value) { j = nlohmann::json{{"kind", value.kind}}; }
void from_json(const nlohmann::json& j, AgentHost& value) { j.at("kind").get_to(value.kind); }

void to_json(nlohmann::json& j, const FocusTarget& value) {
  j = nlohmann::json{{"pid", value.pid}, {"displayName", value.displayName}};
}

void from_json(const nlohmann::json& j, FocusTarget& value) {
  j.at("pid").get_to(value.pid);
  j.at("displayName").get_to(value.displayName);
}

void to_json(nlohmann::json& j, const OtherUserListener& value) {
  j = nlohmann::json{{"address", value.address},
                     {"family", value.family},
                     {"port", value.port},
                     {"uid", value.uid},
                     {"userName", value.userName}};
}

void to_json(nlohmann::json& j, const PortListener& value) {
  j = nlohmann::json::object();
  j["identity"] = value.identity;
  j["port"] = value.port;
  j["proto"] = value.proto;
  j["state"] = value.state;
  j["endpoints"] = value.endpoints;
  j["bindScope"] = value.bindScope;
  j["bindSignature"] = value.bindSignature;
  j["process"] = value.process;
  j["workerPoolSize"] = value.workerPoolSize;
  putOptional(j, "parentIdentity", value.parentIdentity);
  j["visibility"] = value.visibility;
  j["classification"] = value.classification;
  putOptional(j, "agentOrigin", value.agentOrigin);
  putOptional(j, "agentProcess", value.agentProcess);
  putOptional(j, "host", value.host);
  putOptional(j, "project", value.project);
  putOptional(j, "focusTarget", value.focusTarget);
  j["isInTidewatchSubtree"] = value.isInTidewatchSubtree;
}

void from_json(const nlohmann::json& j, PortListener& value) {
  j.at("identity").get_to(value.identity);
  j.at("port").get_to(value.port);
  j.at("proto").get_to(value.proto);
  j.at("state").get_to(value.state);
  j.at("endpoints").get_to(value.endpoints);
  j.at("bindScope").get_to(value.bindScope);
  j.at("bindSignature").get_to(value.bindSignature);
  j.at("process").get_to(value.process);
  j.at("workerPoolSize").get_to(value.workerPoolSize);
  getOptional(j, "parentIdentity", value.parentIdentity);
  j.at("visibility").get_to(value.visibility);
  j.at("classification").get_to(value.classification);
  getOptional(j, "agentOrigin", value.agentOrigin);
  getOptional(j, "agentProcess", value.agentProcess);
  getOptional(j, "host", value.host);
  getOptional(j, "project", value.project);
  getOptional(j, "focusTarget", value.focusTarget);
  j.at("isInTidewatchSubtree").get_to(value.isInTidewatchSubtree);
}

}  // namespace tidewatch
