#include "tidewatch_kit/service_classifier.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using Argv = std::vector<std::string>;

ServiceClassification expect(std::optional<Runtime> r, std::optional<Framework> f, std::optional<KnownService> s,
                             Confidence c, std::string label) {
  return {r, f, s, c, std::move(label)};
}

constexpr auto high = Confidence::high;
constexpr auto medium = Confidence::medium;
constexpr auto low = Confidence::low;

TEST(ServiceClassifierTest, ClassifiesByNameThenRuntimeThenPort) {
  struct Case {
    std::optional<std::string> name;
    std::optional<std::string> path;
    int port;
    std::optional<Argv> argv;
    ServiceClassification expected;
  };
  const Case cases[] = {
      {"Python", {}, 1234, {}, expect(Runtime::python, {}, {}, medium, "Python")},
      {{}, "/opt/py/bin/python3.11", 8000, Argv{"python3.11", "-m", "uvicorn", "app:app"},
       expect(Runtime::python, Framework::uvicorn, {}, high, "Python \u00B7 Uvicorn")},
      {{}, "/usr/bin/node", 5173, {}, expect(Runtime::node, {}, {}, medium, "Node")},
      {{}, "/usr/lib/postgresql/15/bin/postgres", 3000, {}, expect({}, {}, KnownService::postgres, high, "Postgres")},
      {{}, "/opt/x/server", 5173, {}, expect(Runtime::node, Framework::vite, {}, low, "Vite?")},
      {{}, "/opt/x/server", 9999, {}, ServiceClassification::unknown()},
      {{}, "/opt/x/Redis-Server", 1, {}, expect({}, {}, KnownService::redis, high, "Redis")},
      {{}, "/Applications/Docker.app/Contents/MacOS/com.docker.anything", 1, {},
       expect({}, {}, KnownService::docker, high, "Docker")},
      {{}, "/usr/bin/ruby3.1", 3000, Argv{"ruby", "bin/rails", "server"},
       expect(Runtime::ruby, Framework::rails, {}, high, "Ruby \u00B7 Rails")},
      {{}, "/usr/local/go/bin/go", 8080, Argv{"go", "run", "vite"}, expect(Runtime::go, {}, {}, medium, "Go")},
      // Flask and Django first, then the servers: gunicorn, uvicorn, and only then FastAPI.
      {{}, "/usr/bin/python3", 1, Argv{"gunicorn", "--worker-class", "uvicorn", "fastapi"},
       expect(Runtime::python, Framework::gunicorn, {}, high, "Python \u00B7 Gunicorn")},
      {{}, "/usr/bin/python3", 1, Argv{"python3", "-m", "flask", "--app", "x", "uvicorn"},
       expect(Runtime::python, Framework::flask, {}, high, "Python \u00B7 Flask")},
      {{}, "/usr/bin/python3", 1, Argv{"python3", "manage.py", "runserver"},
       expect(Runtime::python, Framework::django, {}, high, "Python \u00B7 Django")},
      {{}, "/usr/bin/python3", 1, Argv{"python3", "manage.py", "migrate"},
       expect(Runtime::python, {}, {}, medium, "Python")},
      // Atoms: last path piece, and its first dotted word.
      {{}, "/usr/bin/node", 1, Argv{"node", "/x/node_modules/.bin/Vite"},
       expect(Runtime::node, Framework::vite, {}, high, "Node \u00B7 Vite")},
      {{}, "/usr/bin/bun", 1, Argv{"bun", "--config", "webpack.config.js"},
       expect(Runtime::bun, Framework::webpack, {}, high, "Bun \u00B7 webpack")},
      {{}, "/usr/bin/deno", 1, Argv{"deno", "x/next-thing"}, expect(Runtime::deno, {}, {}, medium, "Deno")},
      {{}, {}, 27017, {}, expect({}, {}, KnownService::mongodb, low, "MongoDB?")},
      {{}, "/", 3306, {}, expect({}, {}, KnownService::mysql, low, "MySQL?")},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ServiceClassifier::classify(c.name, c.path, c.port, c.argv), c.expected)
        << c.name.value_or("") << " " << c.path.value_or("") << " " << c.port;
  }
}

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
