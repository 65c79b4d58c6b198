// Says in a word or two what a listener is, from its executable's name, its arguments and its port.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

namespace ServiceClassifier {

// A known server by name beats a runtime (with a framework from the arguments); the port alone
// gives at most a low-confidence guess whose label ends in "?".
ServiceClassification classify(const std::optional<std::string>& name, const std::optional<std::string>& executablePath,
                               int port, const std::optional<std::vector<std::string>>& argv);

// Whether a lower-cased executable basename names a known server or a runtime: such a binary is
// a developer's own, wherever it lies.
bool namesServiceOrRuntime(std::string_view basename);

}  // namespace ServiceClassifier

// The small label beside a row: the framework, service or runtime name, absent when the
// classification is unknown or the label would only repeat the process name.
std::optional<std::string> classificationDisplayLabel(const PortListener& listener);

}  // namespace tidewatch
