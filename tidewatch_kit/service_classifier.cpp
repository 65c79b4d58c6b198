#include "tidewatch_kit/service_classifier.h"
#include "process_core/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <unordered_set>

namespace tidewatch {
namespace {

std::optional<KnownService> knownService(std::string_view basename) {
  struct Row {
    std::array<std::string_view, 5> names;
    KnownService service;
  };
  static constexpr Row rows[] = {
      {{"postgres", "postgresql", "postmaster"}, KnownService::postgres},
      {{"mysqld", "mariadbd", "mysqld_safe"}, KnownService::mysql},
      {{"redis-server"}, KnownService::redis},
      {{"mongod"}, KnownService::mongodb},
      {{"dockerd", "docker", "com.docker.backend", "com.docker.vpnkit", "vpnkit"}, KnownService::docker},
  };
  for (const auto& row : rows) {
    for (std::string_view name : row.names) {
      if (!name.empty() && name == basename) return row.service;
    }
  }
  if (basename.starts_with("com.docker")) return KnownService::docker;
  return std::nullopt;
}

std::optional<Runtime> runtime(std::string_view basename) {
  if (basename == "node" || basename == "nodejs") return Runtime::node;
  if (basename == "bun") return Runtime::bun;
  if (basename == "deno") return Runtime::deno;
  if (basename.starts_with("ruby")) return Runtime::ruby;
  if (basename.starts_with("python")) return Runtime::python;
  if (basename == "go") return Runtime::go;
  return std::nullopt;
}

// Each argument whole, its last path piece, and that piece up to its first dot, all lower-cased:
// "/x/node_modules/.bin/Vite" gives "vite", and so does "vite.config.ts".
std::unordered_set<std::string> argvAtoms(const std::vector<std::string>& argv) {
  std::unordered_set<std::string> atoms;
  for (const auto& argument : argv) {
    const std::string lowered = asciiLowercased(argument);
    atoms.insert(lowered);
    const auto pieces = nonEmptyPieces(lowered, '/');
    if (pieces.empty()) continue;
    atoms.insert(std::string(pieces.back()));
    const auto words = nonEmptyPieces(pieces.back(), '.');
    if (!words.empty()) atoms.insert(std::string(words.front()));
  }
  return atoms;
}

std::optional<Framework> framework(Runtime runtimeKind, const std::optional<std::vector<std::string>>& argv) {
  if (!argv || argv->empty()) return std::nullopt;
  const auto atoms = argvAtoms(*argv);
  auto has = [&atoms](std::string_view atom) { return atoms.contains(std::string(atom)); };
  switch (runtimeKind) {
    case Runtime::node:
    case Runtime::bun:
    case Runtime::deno:
      if (has("vite")) return Framework::vite;
      if (has("next")) return Framework::next;
      if (has("nuxt")) return Framework::nuxt;
      if (has("react-scripts")) return Framework::cra;
      if (has("webpack") || has("webpack-dev-server")) return Framework::webpack;
      return std::nullopt;
    case Runtime::python:
      if (has("flask")) return Framework::flask;
      if (has("django")) return Framework::django;
      if (has("manage.py") && has("runserver")) return Framework::django;
      if (has("gunicorn")) return Framework::gunicorn;
      if (has("uvicorn")) return Framework::uvicorn;
      if (has("fastapi")) return Framework::fastapi;
      return std::nullopt;
    case Runtime::ruby:
      if (has("rails")) return Framework::rails;
      if (has("puma")) return Framework::puma;
      return std::nullopt;
    case Runtime::go:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<ServiceClassification> portHint(int port) {
  auto guess = [](std::optional<Runtime> r, std::optional<Framework> f, std::optional<KnownService> s,
                  std::string label) { return ServiceClassification{r, f, s, Confidence::low, std::move(label)}; };
  switch (port) {
    case 3000:
    case 8000:
    case 8080:
      return guess(std::nullopt, std::nullopt, std::nullopt, "Web server?");
    case 3306:
      return guess(std::nullopt, std::nullopt, KnownService::mysql, "MySQL?");
    case 5173:
      return guess(Runtime::node, Framework::vite, std::nullopt, "Vite?");
    case 5432:
      return guess(std::nullopt, std::nullopt, KnownService::postgres, "Postgres?");
    case 6379:
      return guess(std::nullopt, std::nullopt, KnownService::redis, "Redis?");
    case 27017:
      return guess(std::nullopt, std::nullopt, KnownService::mongodb, "MongoDB?");
    default:
      return std::nullopt;
  }
}

}  // namespace

namespace ServiceClassifier {

ServiceClassification classify(const std::optional<std::string>& name, const std::optional<std::string>& executablePath,
                               int port, const std::optional<std::vector<std::string>>& argv) {
  std::optional<std::string> base;
  if (executablePath) base = lastPathComponent(*executablePath);
  if (!base) base = name;
  const std::string basename = asciiLowercased(base.value_or(""));

  if (auto service = knownService(basename)) {
    return {std::nullopt, std::nullopt, service, Confidence::high, std::string(displayName(*service))};
  }
  if (auto runtimeKind = runtime(basename)) {
    if (auto frameworkKind = framework(*runtimeKind, argv)) {
      std::string label = std::string(displayName(*runtimeKind)) + " \u00B7 " + std::string(displayName(*frameworkKind));
      return {runtimeKind, frameworkKind, std::nullopt, Confidence::high, std::move(label)};
    }
    return {runtimeKind, std::nullopt, std::nullopt, Confidence::medium, std::string(displayName(*runtimeKind))};
  }
  if (auto hint = portHint(port)) return *hint;
  return ServiceClassification::unknown();
}

bool namesServiceOrRuntime(std::string_view basename) {
  return knownService(basename).has_value() || runtime(basename).has_value();
}

}  // namespace ServiceClassifier

std::optional<std::string> classificationDisplayLabel(const PortListener& listener) {
  const ServiceClassification& classification = listener.classification;
  if (classification.confidence == Confidence::unknown) return std::nullopt;
  std::string_view preferred = classification.label;
  if (classification.framework) {
    preferred = displayName(*classification.framework);
  } else if (classification.service) {
    preferred = displayName(*classification.service);
  } else if (classification.runtime) {
    preferred = displayName(*classification.runtime);
  }
  const std::string_view label = trimmedWhitespace(preferred);
  if (label.empty()) return std::nullopt;
  // "node" beside "Node" would say nothing.
  if (asciiLowercased(label) == asciiLowercased(listener.process.displayName())) return std::nullopt;
  return std::string(label);
}

}  // namespace tidewatch
