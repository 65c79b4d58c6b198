#include "process_core/defaults_store.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "process_core/path_utils.h"
#include "process_core/pretty_json.h"

namespace tidewatch {
namespace {

std::optional<std::string> readFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string content;
  char buffer[4096];
  while (true) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    content.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  return content;
}

bool makeDirectories(const std::string& directory) {
  if (directory.empty() || directory == "/") return true;
  struct stat info {};
  if (::stat(directory.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
  if (!makeDirectories(deletingLastPathComponent(directory))) return false;
  return ::mkdir(directory.c_str(), 0700) == 0 || errno == EEXIST;
}

bool writeAll(int fd, const std::string& bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    written += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

DefaultsStore::DefaultsStore(std::string path) : path_(std::move(path)) {}

std::string DefaultsStore::standardPath(const char* xdgConfigHome, const char* home) {
  std::string base;
  if (xdgConfigHome && *xdgConfigHome == '/') {
    base = xdgConfigHome;
  } else {
    std::string homeDirectory = home && *home ? home : "";
    if (homeDirectory.empty()) {
      if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) homeDirectory = entry->pw_dir;
    }
    base = appendingPathComponent(homeDirectory, ".config");
  }
  return appendingPathComponent(appendingPathComponent(base, "tidewatch"), "defaults.json");
}

DefaultsStore DefaultsStore::standard() {
  return DefaultsStore(standardPath(std::getenv("XDG_CONFIG_HOME"), std::getenv("HOME")));
}

nlohmann::json DefaultsStore::load() const {
  auto content = readFile(path_);
  if (!content) return nlohmann::json::object();
  auto parsed = parseJSON(*content);
  if (parsed.is_discarded() || !parsed.is_object()) return nlohmann::json::object();
  return parsed;
}

bool DefaultsStore::boolForKey(const std::string& key) const {
  const auto object = load();
  auto it = object.find(key);
  return it != object.end() && it->is_boolean() && it->get<bool>();
}

std::optional<nlohmann::json> DefaultsStore::valueForKey(const std::string& key) const {
  const auto object = load();
  auto it = object.find(key);
  if (it == object.end()) return std::nullopt;
  return *it;
}

std::optional<std::string> DefaultsStore::stringForKey(const std::string& key) const {
  const auto object = load();
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

bool DefaultsStore::set(const std::string& key, const nlohmann::json& value) {
  auto object = load();
  object[key] = value;
  return store(object);
}

bool DefaultsStore::remove(const std::string& key) {
  auto object = load();
  object.erase(key);
  return store(object);
}

bool DefaultsStore::store(const nlohmann::json& object) {
  const std::string directory = deletingLastPathComponent(path_);
  if (!makeDirectories(directory)) return false;
  std::string temporary = path_ + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());
  if (fd < 0) return false;
  const bool ok = writeAll(fd, writePrettyJSON(object) + "\n") && ::fchmod(fd, 0600) == 0 && ::fsync(fd) == 0;
  ::close(fd);
  if (!ok || ::rename(temporary.c_str(), path_.c_str()) != 0) {
    (void)::unlink(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace tidewatch
