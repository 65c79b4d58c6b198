// Asking the user's session bus one question from the command line, without linking a bus
// library into the front executable: the hook relay starts on every agent event and must not pay
// for loading one. The library is loaded only when a command asks.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>

namespace tidewatch::SessionBus {

struct Call {
  std::string destination;
  std::string path;
  std::string interfaceName;
  std::string member;
  std::chrono::milliseconds timeout{2000};
};

// Nobody owns the destination, or there is no session bus to ask.
struct NoAnswer {
  std::string reason;
};

// Calls a method without arguments that answers one string.
std::variant<std::string, NoAnswer> callForString(const Call& call);

}  // namespace tidewatch::SessionBus
