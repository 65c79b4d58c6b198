// The system-wide key that opens the panel: the stored preference, how it reads, and the manager
// that keeps it registered. Key codes, modifier masks and names differ by platform, so they come
// in as a profile; registration itself is an injected operation.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "process_core/defaults_store.h"

namespace tidewatch {

enum class GlobalShortcutModifier { command, option, control, shift };
inline constexpr GlobalShortcutModifier allGlobalShortcutModifiers[] = {
    GlobalShortcutModifier::command, GlobalShortcutModifier::option, GlobalShortcutModifier::control,
    GlobalShortcutModifier::shift};
std::string_view rawValue(GlobalShortcutModifier modifier);
std::optional<GlobalShortcutModifier> globalShortcutModifierFromRaw(std::string_view raw);

namespace GlobalShortcutKeyMap {
struct Entry {
  std::string_view key;  // the lowercased character
  uint32_t code = 0;
};
// Character to macOS virtual key code of the ANSI layout: 26 letters, 10 digits, 11 punctuation keys.
std::span<const Entry> keyCodes();
// The same characters to X11 keysyms.
std::span<const Entry> linuxKeysyms();
// A keysym of that table with X11 modifier masks as the desktop portals write a trigger
// ("CTRL+ALT+p": xkbcommon's modifier and keysym names); absent for a keysym outside the table.
std::optional<std::string> portalTrigger(uint32_t keysym, uint32_t modifierMask);
}  // namespace GlobalShortcutKeyMap

// What a platform calls the modifiers and keys.
struct GlobalShortcutProfile {
  struct Modifier {
    std::string label;  // as displayText writes it
    uint32_t mask = 0;  // the system's modifier mask
  };
  // Indexed by GlobalShortcutModifier.
  std::array<Modifier, 4> modifiers;
  // The order displayText names the modifiers in.
  std::array<GlobalShortcutModifier, 4> displayOrder;
  // Between the labels and before the key.
  std::string separator;
  std::span<const GlobalShortcutKeyMap::Entry> keyCodes;

  // ⌘ ⌥ ⌃ ⇧ with Carbon masks and virtual key codes.
  static const GlobalShortcutProfile& darwin();
  // Ctrl, Alt, Super and Shift with X11 masks and keysyms, joined by "+".
  static const GlobalShortcutProfile& forLinux();

  uint32_t mask(const std::set<GlobalShortcutModifier>& set) const;
  // The table's value for the key; absent outside it.
  std::optional<uint32_t> keyCode(const std::string& key) const;
};

// On a Wayland session X11 clients hear keys only while one of them has the focus, so the shortcut
// goes through the desktop's portal there, from XDG_SESSION_TYPE and WAYLAND_DISPLAY.
bool globalShortcutThroughPortal(std::string_view sessionType, std::string_view waylandDisplay);

struct GlobalShortcutPreference {
  std::string key;  // the lowercased character
  std::set<GlobalShortcutModifier> modifiers;

  // "p" with command and option.
  static GlobalShortcutPreference defaultPreference();

  // The modifiers that are set, then the key in upper case: "⌘⌥P", "Ctrl+Alt+P".
  std::string displayText(const GlobalShortcutProfile& profile) const;

  // {"key": ..., "modifiers": [raw values]}.
  nlohmann::json toJSON() const;
  // Absent unless "key" is a string and "modifiers" an array of known raw values.
  static std::optional<GlobalShortcutPreference> fromJSON(const nlohmann::json& json);

  friend bool operator==(const GlobalShortcutPreference&, const GlobalShortcutPreference&) = default;
};

namespace GlobalShortcutSettings {
inline constexpr std::string_view preferenceKey = "controls.globalShortcut";
inline constexpr std::string_view enabledKey = "controls.globalShortcutEnabled";

// The stored preference; the default when it does not decode, has no modifier, or names a key
// the profile has no code for.
GlobalShortcutPreference preference(const DefaultsStore& defaults, const GlobalShortcutProfile& profile);
// Stored as JSON text.
bool setPreference(const GlobalShortcutPreference& preference, DefaultsStore& defaults);
}  // namespace GlobalShortcutSettings

// Owns the registration of the shortcut. Not thread-safe: used on the main thread. The store and
// the profile (one of the two static ones) must outlive it.
class GlobalShortcutManager {
 public:
  enum class Registration {
    registered,
    taken,        // another program holds the combination
    unavailable,  // the session offers no global shortcuts at all
    declined,     // the desktop asked the user, or its own rules, and the answer was no
    pending,      // the session answers later, through the settler
    unassigned,   // the desktop holds the shortcut but gave it no keys (yet): the user chooses them there
  };

  struct Dependencies {
    // Called once, with the operation to run on the main thread when the shortcut is pressed.
    std::function<void(std::function<void()> pressed)> installHandler;
    std::function<void()> removeHandler;
    // Registers the key code with the modifier mask, both in the profile's terms.
    std::function<Registration(uint32_t keyCode, uint32_t modifierMask)> registerHotKey;
    // Releases what registerHotKey registered, or gives up waiting for it.
    std::function<void()> unregisterHotKey;
    // For sessions that answer later: called once at start with the operation that reports how
    // the latest registration stands now, on the main thread, as often as the desktop says (it
    // may let the user change the keys). removeHandler removes it too.
    std::function<void(std::function<void(Registration)> settle)> installSettler;
  };

  static constexpr std::string_view unsupportedShortcutError =
      "Choose a supported shortcut with at least one modifier.";
  static constexpr std::string_view takenError = "That shortcut is already in use by another app.";
  static constexpr std::string_view noModifierError = "Choose at least one modifier.";
  static constexpr std::string_view unsupportedKeyError = "Choose a letter, number, or punctuation key.";
  static constexpr std::string_view unavailableError = "This desktop session doesn't offer global shortcuts.";
  static constexpr std::string_view declinedError = "The desktop declined the shortcut.";
  static constexpr std::string_view unassignedError = "Choose its keys in the desktop's keyboard shortcut settings.";

  GlobalShortcutManager(DefaultsStore& defaults, const GlobalShortcutProfile& profile, Dependencies dependencies);
  GlobalShortcutManager(const GlobalShortcutManager&) = delete;
  GlobalShortcutManager& operator=(const GlobalShortcutManager&) = delete;
  ~GlobalShortcutManager();

  const GlobalShortcutPreference& preference() const { return preference_; }
  bool isEnabled() const { return isEnabled_; }
  const std::optional<std::string>& registrationError() const { return registrationError_; }
  bool isRegistered() const { return held_ && outcome_ == Registration::registered; }
  // Asked for and not yet answered.
  bool isPending() const { return held_ && outcome_ == Registration::pending; }
  std::string displayText() const { return preference_.displayText(profile_); }

  // Called after every change of the observable state above.
  std::function<void()> onChange;

  void start(std::function<void()> action);
  void stop();
  // Refuses a preference without modifiers or with an unsupported key, keeping the current one.
  void update(const GlobalShortcutPreference& preference);
  void restoreDefault();
  // Stores the switch and registers or releases the shortcut.
  void setEnabled(bool enabled);
  std::optional<uint32_t> keyCode(const std::string& key) const { return profile_.keyCode(key); }

 private:
  void registerCurrentPreference();
  void unregister();
  void settle(Registration outcome);
  void apply(Registration outcome);
  void changed();

  DefaultsStore& defaults_;
  const GlobalShortcutProfile& profile_;
  Dependencies dependencies_;
  GlobalShortcutPreference preference_;
  bool isEnabled_ = true;
  std::optional<std::string> registrationError_;
  // Whether the platform holds something of ours that a change must release, and how it stands.
  bool held_ = false;
  Registration outcome_ = Registration::unavailable;
  bool handlerInstalled_ = false;
  std::function<void()> action_;
};

}  // namespace tidewatch
