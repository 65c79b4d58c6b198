// JSON forms of the scan's records, as the scan report prints them and reads them back.
#pragma once

#include <nlohmann/json.hpp>

#include "process_core/process_json.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

void to_json(nlohmann::json& j, const BoundEndpoint& value);
void from_json(const nlohmann::json& j, BoundEndpoint& value);
void to_json(nlohmann::json& j, BindScope value);
void from_json(const nlohmann::json& j, BindScope& value);
void to_json(nlohmann::json& j, const BindSignature::Token& value);
void from_json(const nlohmann::json& j, BindSignature::Token& value);
void to_json(nlohmann::json& j, const BindSignature& value);
void from_json(const nlohmann::json& j, BindSignature& value);
void to_json(nlohmann::json& j, PortProtocol value);
void from_json(const nlohmann::json& j, PortProtocol& value);
void to_json(nlohmann::json& j, PortState value);
void from_json(const nlohmann::json& j, PortState& value);
void to_json(nlohmann::json& j, VisibilityClass value);
void from_json(const nlohmann::json& j, VisibilityClass& value);
void to_json(nlohmann::json& j, const ListenerIdentity& value);
void from_json(const nlohmann::json& j, ListenerIdentity& value);
void to_json(nlohmann::json& j, Runtime value);
void from_json(const nlohmann::json& j, Runtime& value);
void to_json(nlohmann::json& j, Framework value);
void from_json(const nlohmann::json& j, Framework& value);
void to_json(nlohmann::json& j, KnownService value);
void from_json(const nlohmann::json& j, KnownService& value);
void to_json(nlohmann::json& j, Confidence value);
void from_json(const nlohmann::json& j, Confidence& value);
void to_json(nlohmann::json& j, const ServiceClassification& value);
void from_json(const nlohmann::json& j, ServiceClassification& value);
void to_json(nlohmann::json& j, const ListenerProject& value);
void from_json(const nlohmann::json& j, ListenerProject& value);
void to_json(nlohmann::json& j, const AgentHost& value);
void from_json(const nlohmann::json& j, AgentHost& value);
void to_json(nlohmann::json& j, const FocusTarget& value);
void from_json(const nlohmann::json& j, FocusTarget& value);
void to_json(nlohmann::json& j, const OtherUserListener& value);
void to_json(nlohmann::json& j, const PortListener& value);
void from_json(const nlohmann::json& j, PortListener& value);

}  // namespace tidewatch
