#include "app/global_shortcut.h"

#include <cctype>
#include <utility>

namespace tidewatch {

std::string_view rawValue(GlobalShortcutModifier modifier) {
  switch (modifier) {
    case GlobalShortcutModifier::command:
      return "command";
    case GlobalShortcutModifier::option:
      return "option";
    case GlobalShortcutModifier::control:
      return "control";
    case GlobalShortcutModifier::shift:
      return "shift";
  }
  return {};
}

std::optional<GlobalShortcutModifier> globalShortcutModifierFromRaw(std::string_view raw) {
  for (GlobalShortcutModifier modifier : allGlobalShortcutModifiers) {
    if (rawValue(modifier) == raw) return modifier;
  }
  return std::nullopt;
}

namespace GlobalShortcutKeyMap {

namespace {

// kVK_ANSI_* of the US layout.
constexpr Entry darwinTable[] = {
    {"a", 0x00},  {"s", 0x01}, {"d", 0x02}, {"f", 0x03}, {"h", 0x04}, {"g", 0x05}, {"z", 0x06}, {"x", 0x07},
    {"c", 0x08},  {"v", 0x09}, {"b", 0x0B}, {"q", 0x0C}, {"w", 0x0D}, {"e", 0x0E}, {"r", 0x0F}, {"y", 0x10},
    {"t", 0x11},  {"1", 0x12}, {"2", 0x13}, {"3", 0x14}, {"4", 0x15}, {"6", 0x16}, {"5", 0x17}, {"=", 0x18},
    {"9", 0x19},  {"7", 0x1A}, {"-", 0x1B}, {"8", 0x1C}, {"0", 0x1D}, {"]", 0x1E}, {"o", 0x1F}, {"u", 0x20},
    {"[", 0x21},  {"i", 0x22}, {"p", 0x23}, {"l", 0x25}, {"j", 0x26}, {"'", 0x27}, {"k", 0x28}, {";", 0x29},
    {"\\", 0x2A}, {",", 0x2B}, {"/", 0x2C}, {"n", 0x2D}, {"m", 0x2E}, {".", 0x2F}, {"`", 0x32},
};

// XK_* of <X11/keysymdef.h>: the Latin-1 keysyms.
constexpr Entry linuxTable[] = {
    {"a", 0x061}, {"b", 0x062}, {"c", 0x063},  {"d", 0x064}, {"e", 0x065}, {"f", 0x066}, {"g", 0x067}, {"h", 0x068},
    {"i", 0x069}, {"j", 0x06a}, {"k", 0x06b},  {"l", 0x06c}, {"m", 0x06d}, {"n", 0x06e}, {"o", 0x06f}, {"p", 0x070},
    {"q", 0x071}, {"r", 0x072}, {"s", 0x073},  {"t", 0x074}, {"u", 0x075}, {"v", 0x076}, {"w", 0x077}, {"x", 0x078},
    {"y", 0x079}, {"z", 0x07a}, {"0", 0x030},  {"1", 0x031}, {"2", 0x032}, {"3", 0x033}, {"4", 0x034}, {"5", 0x035},
    {"6", 0x036}, {"7", 0x037}, {"8", 0x038},  {"9", 0x039}, {"=", 0x03d}, {"-", 0x02d}, {"]", 0x05d}, {"[", 0x05b},
    {"'", 0x027}, {";", 0x03b}, {"\\", 0x05c}, {",", 0x02c}, {"/", 0x02f}, {".", 0x02e}, {"`", 0x060},
};

}  // namespace

std::span<const Entry> keyCodes() { return darwinTable; }
std::span<const Entry> linuxKeysyms() { return linuxTable; }

std::optional<std::string> portalTrigger(uint32_t keysym, uint32_t modifierMask) {
  // The punctuation keysyms by name; letters and digits are named by themselves.
  static constexpr std::pair<uint32_t, std::string_view> punctuation[] = {
      {0x03d, "equal"},     {0x02d, "minus"},      {0x05d, "bracketright"}, {0x05b, "bracketleft"},
      {0x027, "apostrophe"}, {0x03b, "semicolon"}, {0x05c, "backslash"},    {0x02c, "comma"},
      {0x02f, "slash"},     {0x02e, "period"},     {0x060, "grave"},
  };
  std::string key;
  if ((keysym >= 'a' && keysym <= 'z') || (keysym >= '0' && keysym <= '9')) {
    key = std::string(1, static_cast<char>(keysym));
  } else {
    for (const auto& [code, name] : punctuation) {
      if (code == keysym) key = name;
    }
  }
  if (key.empty()) return std::nullopt;
  static constexpr std::pair<uint32_t, std::string_view> modifiers[] = {
      {0x04, "CTRL"}, {0x08, "ALT"}, {0x01, "SHIFT"}, {0x40, "LOGO"}};
  std::string trigger;
  for (const auto& [mask, name] : modifiers) {
    if (modifierMask & mask) trigger.append(name).append("+");
  }
  return trigger + key;
}

}  // namespace GlobalShortcutKeyMap

bool globalShortcutThroughPortal(std::string_view sessionType, std::string_view waylandDisplay) {
  return sessionType == "wayland" || !waylandDisplay.empty();
}

const GlobalShortcutProfile& GlobalShortcutProfile::darwin() {
  static const GlobalShortcutProfile profile{
      .modifiers = {{{"⌘", 0x100}, {"⌥", 0x800}, {"⌃", 0x1000}, {"⇧", 0x200}}},
      .displayOrder = {GlobalShortcutModifier::command, GlobalShortcutModifier::option, GlobalShortcutModifier::control,
                       GlobalShortcutModifier::shift},
      .separator = "",
      .keyCodes = GlobalShortcutKeyMap::keyCodes(),
  };
  return profile;
}

const GlobalShortcutProfile& GlobalShortcutProfile::forLinux() {
  // ControlMask, Mod1Mask, Mod4Mask and ShiftMask; named and ordered as Linux desktops write them.
  static const GlobalShortcutProfile profile{
      .modifiers = {{{"Ctrl", 0x04}, {"Alt", 0x08}, {"Super", 0x40}, {"Shift", 0x01}}},
      .displayOrder = {GlobalShortcutModifier::command, GlobalShortcutModifier::option, GlobalShortcutModifier::shift,
                       GlobalShortcutModifier::control},
      .separator = "+",
      .keyCodes = GlobalShortcutKeyMap::linuxKeysyms(),
  };
  return profile;
}

uint32_t GlobalShortcutProfile::mask(const std::set<GlobalShortcutModifier>& set) const {
  uint32_t result = 0;
  for (GlobalShortcutModifier modifier : set) result |= modifiers[static_cast<size_t>(modifier)].mask;
  return result;
}

std::optional<uint32_t> GlobalShortcutProfile::keyCode(const std::string& key) const {
  for (const auto& entry : keyCodes) {
    if (entry.key == key) return entry.code;
  }
  return std::nullopt;
}

GlobalShortcutPreference GlobalShortcutPreference::defaultPreference() {
  return {"p", {GlobalShortcutModifier::command, GlobalShortcutModifier::option}};
}

std::string GlobalShortcutPreference::displayText(const GlobalShortcutProfile& profile) const {
  std::string text;
  for (GlobalShortcutModifier modifier : profile.displayOrder) {
    if (!modifiers.contains(modifier)) continue;
    text += profile.modifiers[static_cast<size_t>(modifier)].label;
    text += profile.separator;
  }
  for (char c : key) text += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

nlohmann::json GlobalShortcutPreference::toJSON() const {
  nlohmann::json raw = nlohmann::json::array();
  for (GlobalShortcutModifier modifier : modifiers) raw.push_back(std::string(rawValue(modifier)));
  return {{"key", key}, {"modifiers", raw}};
}

std::optional<GlobalShortcutPreference> GlobalShortcutPreference::fromJSON(const nlohmann::json& json) {
  if (!json.is_object()) return std::nullopt;
  const auto key = json.find("key");
  const auto modifiers = json.find("modifiers");
  if (key == json.end() || !key->is_string() || modifiers == json.end() || !modifiers->is_array()) return std::nullopt;
  GlobalShortcutPreference preference{key->get<std::string>(), {}};
  for (const auto& raw : *modifiers) {
    const auto modifier = raw.is_string() ? globalShortcutModifierFromRaw(raw.get<std::string>()) : std::nullopt;
    if (!modifier) return std::nullopt;
    preference.modifiers.insert(*modifier);
  }
  return preference;
}

namespace GlobalShortcutSettings {

GlobalShortcutPreference preference(const DefaultsStore& defaults, const GlobalShortcutProfile& profile) {
  const auto text = defaults.stringForKey(std::string(preferenceKey));
  if (!text) return GlobalShortcutPreference::defaultPreference();
  const auto decoded = GlobalShortcutPreference::fromJSON(nlohmann::json::parse(*text, nullptr, false));
  if (!decoded || decoded->modifiers.empty() || !profile.keyCode(decoded->key)) {
    return GlobalShortcutPreference::defaultPreference();
  }
  return *decoded;
}

bool setPreference(const GlobalShortcutPreference& preference, DefaultsStore& defaults) {
  return defaults.set(std::string(preferenceKey), preference.toJSON().dump());
}

}  // namespace GlobalShortcutSettings

GlobalShortcutManager::GlobalShortcutManager(DefaultsStore& defaults, const GlobalShortcutProfile& profile,
                                             Dependencies dependencies)
    : defaults_(defaults),
      profile_(profile),
      dependencies_(std::move(dependencies)),
      preference_(GlobalShortcutSettings::preference(defaults, profile)) {
  const auto enabled = defaults.valueForKey(std::string(GlobalShortcutSettings::enabledKey));
  isEnabled_ = !(enabled && enabled->is_boolean()) || enabled->get<bool>();
}

GlobalShortcutManager::~GlobalShortcutManager() {
  // The handler refers to this object, so it must not outlive it.
  if (handlerInstalled_ || held_) stop();
}

void GlobalShortcutManager::start(std::function<void()> action) {
  action_ = std::move(action);
  if (!handlerInstalled_) {
    dependencies_.installHandler([this] {
      if (action_) action_();
    });
    if (dependencies_.installSettler) dependencies_.installSettler([this](Registration outcome) { settle(outcome); });
    handlerInstalled_ = true;
  }
  registerCurrentPreference();
  changed();
}

void GlobalShortcutManager::stop() {
  unregister();
  if (handlerInstalled_) {
    dependencies_.removeHandler();
    handlerInstalled_ = false;
  }
  action_ = nullptr;
  changed();
}

void GlobalShortcutManager::update(const GlobalShortcutPreference& preference) {
  if (preference.modifiers.empty()) {
    registrationError_ = std::string(noModifierError);
  } else if (!keyCode(preference.key)) {
    registrationError_ = std::string(unsupportedKeyError);
  } else {
    preference_ = preference;
    (void)GlobalShortcutSettings::setPreference(preference_, defaults_);
    registerCurrentPreference();
  }
  changed();
}

void GlobalShortcutManager::restoreDefault() {
  update(GlobalShortcutPreference::defaultPreference());
  if (!isEnabled_) setEnabled(true);
}

void GlobalShortcutManager::setEnabled(bool enabled) {
  isEnabled_ = enabled;
  (void)defaults_.set(std::string(GlobalShortcutSettings::enabledKey), enabled);
  registerCurrentPreference();
  changed();
}

void GlobalShortcutManager::registerCurrentPreference() {
  unregister();
  registrationError_.reset();
  if (!isEnabled_) return;
  const auto code = keyCode(preference_.key);
  if (!code || preference_.modifiers.empty()) {
    registrationError_ = std::string(unsupportedShortcutError);
    return;
  }
  apply(dependencies_.registerHotKey(*code, profile_.mask(preference_.modifiers)));
}

namespace {

// What the settings say of an outcome; nothing for one that works or is still being decided.
std::string_view errorText(GlobalShortcutManager::Registration outcome) {
  using Manager = GlobalShortcutManager;
  switch (outcome) {
    case Manager::Registration::taken: return Manager::takenError;
    case Manager::Registration::unavailable: return Manager::unavailableError;
    case Manager::Registration::declined: return Manager::declinedError;
    case Manager::Registration::unassigned: return Manager::unassignedError;
    case Manager::Registration::registered:
    case Manager::Registration::pending: return {};
  }
  return {};
}

}  // namespace

void GlobalShortcutManager::apply(Registration outcome) {
  outcome_ = outcome;
  // A request still open, or a shortcut the desktop keeps without keys, is withdrawn on a change
  // like a registered one; a refusal left nothing behind.
  held_ = outcome == Registration::registered || outcome == Registration::pending ||
          outcome == Registration::unassigned;
  const std::string_view error = errorText(outcome);
  registrationError_ = error.empty() ? std::nullopt : std::optional<std::string>(error);
}

void GlobalShortcutManager::settle(Registration outcome) {
  if (!held_ || outcome == Registration::pending) return;
  apply(outcome);
  changed();
}

void GlobalShortcutManager::unregister() {
  if (!held_) return;
  held_ = false;
  dependencies_.unregisterHotKey();
}

void GlobalShortcutManager::changed() {
  if (onChange) onChange();
}

}  // namespace tidewatch
