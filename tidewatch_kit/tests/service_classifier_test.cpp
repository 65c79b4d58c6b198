#include "tidewatch_kit/service_classifier.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using Argv = std::vector<std::string>;

struct Case {
  std::optional<std::string> name;
  std::optional<std::string> path;
  int port;
  std::optional<Argv> argv;
  ServiceClassification expected;
};

ServiceClassification expect(std::optional<Runtime> r, std::optional<Framework> f, std::optional<KnownService> s,
                             Confidence c, std::string label) {
  return {r, f, s, c, std::move(label)};
}

class ServiceClassifierTest : public ::testing::TestWithParam<Case> {};

TEST_P(ServiceClassifierTest, ClassifiesByNameThenRuntimeThenPort) {
  const Case& c = GetParam();
  EXPECT_EQ(ServiceClassifier::classify(c.name, c.path, c.port, c.argv), c.expected);
}

constexpr auto high = Confidence::high;
constexpr auto medium = Confidence::medium;
constexpr auto low = Confidence::low;

INSTANTIATE_TEST_SUITE_P(
    Rules, ServiceClassifierTest,
    ::testing::Values(
        Case{"Python", {}, 1234, {}, expect(Runtime::python, {}, {}, medium, "Python")},
        Case{{}, "/opt/py/bin/python3.11", 8000, Argv{"python3.11", "-m", "uvicorn", "app:app"},
             expect(Runtime::python, Framework::uvicorn, {}, high, "Python \u00B7 Uvicorn")},
        Case{{}, "/usr/bin/node", 5173, {}, expect(Runtime::node, {}, {}, medium, "Node")},
        Case{{}, "/usr/lib/postgresql/15/bin/postgres", 3000, {}, expect({}, {}, KnownService::postgres, high, "Postgres")},
        Case{{}, "/opt/x/server", 5173, {}, expect(Runtime::node, Framework::vite, {}, low, "Vite?")},
        Case{{}, "/opt/x/server", 9999, {}, ServiceClassification::unknown()},
        Case{{}, "/opt/x/Redis-Server", 1, {}, expect({}, {}, KnownService::redis, high, "Redis")},
        Case{{}, "/Applications/Docker.app/Contents/MacOS/com.docker.anything", 1, {},
             expect({}, {}, KnownService::docker, high, "Docker")},
        Case{{}, "/usr/bin/ruby3.1", 3000, Argv{"ruby", "bin/rails", "server"},
             expect(Runtime::ruby, Framework::rails, {}, high, "Ruby \u00B7 Rails")},
        Case{{}, "/usr/local/go/bin/go", 8080, Argv{"go", "run", "vite"}, expect(Runtime::go, {}, {}, medium, "Go")},
        // Flask and Django first, then the servers: gunicorn, uvicorn, and only then FastAPI.
        Case{{}, "/usr/bin/python3", 1, Argv{"gunicorn", "--worker-class", "uvicorn", "fastapi"},
             expect(Runtime::python, Framework::gunicorn, {}, high, "Python \u00B7 Gunicorn")},
        Case{{}, "/usr/bin/python3", 1, Argv{"python3", "-m", "flask", "--app", "x", "uvicorn"},
             expect(Runtime::python, Framework::flask, {}, high, "Python \u00B7 Flask")},
        Case{{}, "/usr/bin/python3", 1, Argv{"python3", "manage.py", "runserver"},
             expect(Runtime::python, Framework::django, {}, high, "Python \u00B7 Django")},
        Case{{}, "/usr/bin/python3", 1, Argv{"python3", "manage.py", "migrate"},
             expect(Runtime::python, {}, {}, medium, "Python")},
        // Atoms: last path piece, and its first dotted word.
        Case{{}, "/usr/bin/node", 1, Argv{"node", "/x/node_modules/.bin/Vite"},
             expect(Runtime::node, Framework::vite, {}, high, "Node \u00B7 Vite")},
        Case{{}, "/usr/bin/bun", 1, Argv{"bun", "--config", "webpack.config.js"},
             expect(Runtime::bun, Framework::webpack, {}, high, "Bun \u00B7 webpack")},
        Case{{}, "/usr/bin/deno", 1, Argv{"deno", "x/next-thing"}, expect(Runtime::deno, {}, {}, medium, "Deno")},
        Case{{}, {}, 27017, {}, expect({}, {}, KnownService::mongodb, low, "MongoDB?")},
        Case{{}, "/", 3306, {}, expect({}, {}, KnownService::mysql, low, "MySQL?")}));

PortListener row(std::optional<std::string> path, ServiceClassification classification) {
  PortListener listener;
  listener.process.executablePath = std::move(path);
  listener.classification = std::move(classification);
  return listener;
}

TEST(ClassificationDisplayLabelTest, AddsSomethingToTheProcessName) {
  const auto redis = expect({}, {}, KnownService::redis, high, "Redis");
  EXPECT_EQ(classificationDisplayLabel(row("/usr/bin/redis-server", redis)), "Redis");
  EXPECT_EQ(classificationDisplayLabel(row("/opt/Redis", redis)), std::nullopt);
  EXPECT_EQ(classificationDisplayLabel(row("/usr/bin/node", expect(Runtime::node, {}, {}, medium, "Node"))),
            std::nullopt);
  EXPECT_EQ(classificationDisplayLabel(
                row("/usr/bin/node", expect(Runtime::node, Framework::next, {}, high, "Node \u00B7 Next.js"))),
            "Next.js");
  EXPECT_EQ(classificationDisplayLabel(row("/opt/x", expect({}, {}, {}, low, "  Web server?\n"))), "Web server?");
  EXPECT_EQ(classificationDisplayLabel(row("/opt/x", expect({}, {}, {}, low, " \t"))), std::nullopt);
  EXPECT_EQ(classificationDisplayLabel(row("/opt/x", ServiceClassification::unknown())), std::nullopt);
}

}  // namespace
}  // namespace tidewatch
