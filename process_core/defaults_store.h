// The user defaults store: one JSON object of settings shared by the command line and the app.
// On Linux it lives in $XDG_CONFIG_HOME/tidewatch/defaults.json (~/.config/... by default) and is
// replaced by atomic rename, never edited in place.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tidewatch {

class DefaultsStore {
 public:
  explicit DefaultsStore(std::string path);

  // The store of the user running the program.
  static DefaultsStore standard();
  // Where the standard store lives; `xdgConfigHome` and `home` as the environment gives them.
  static std::string standardPath(const char* xdgConfigHome, const char* home);

  const std::string& path() const { return path_; }

  // An absent file, an unreadable or malformed one, an absent key or a non-boolean reads false.
  bool boolForKey(const std::string& key) const;
  std::optional<std::string> stringForKey(const std::string& key) const;
  // Whatever is stored under the key; absent for an absent key or an unreadable file. Lets a
  // boolean whose default is true tell absent from false.
  std::optional<nlohmann::json> valueForKey(const std::string& key) const;

  // Writes one key through an atomic replace of the whole file; false when that failed, and
  // then the file is as it was.
  bool set(const std::string& key, const nlohmann::json& value);
  bool remove(const std::string& key);

 private:
  nlohmann::json load() const;
  bool store(const nlohmann::json& object);

  std::string path_;
};

}  // namespace tidewatch
