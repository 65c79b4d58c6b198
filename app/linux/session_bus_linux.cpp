// The session bus through sd-bus, loaded with dlopen on first use (see session_bus.h).
#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include "app/session_bus.h"

namespace tidewatch::SessionBus {
namespace {

struct Library {
  decltype(&sd_bus_open_user) openUser = nullptr;
  decltype(&sd_bus_set_method_call_timeout) setTimeout = nullptr;
  decltype(&sd_bus_call_method) callMethod = nullptr;
  decltype(&sd_bus_message_read) read = nullptr;
  decltype(&sd_bus_message_unref) unrefMessage = nullptr;
  decltype(&sd_bus_flush_close_unref) close = nullptr;
  decltype(&sd_bus_error_free) freeError = nullptr;

  bool complete() const { return openUser && setTimeout && callMethod && read && unrefMessage && close && freeError; }
};

template <typename F>
void bind(void* handle, F& function, const char* name) {
  function = reinterpret_cast<F>(::dlsym(handle, name));
}

const Library* library() {
  static const Library* const loaded = []() -> const Library* {
    void* handle = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!handle) return nullptr;
    static Library functions;
    bind(handle, functions.openUser, "sd_bus_open_user");
    bind(handle, functions.setTimeout, "sd_bus_set_method_call_timeout");
    bind(handle, functions.callMethod, "sd_bus_call_method");
    bind(handle, functions.read, "sd_bus_message_read");
    bind(handle, functions.unrefMessage, "sd_bus_message_unref");
    bind(handle, functions.close, "sd_bus_flush_close_unref");
    bind(handle, functions.freeError, "sd_bus_error_free");
    return functions.complete() ? &functions : nullptr;
  }();
  return loaded;
}

}  // namespace

std::variant<std::string, NoAnswer> callForString(const Call& call) {
  const Library* sd = library();
  if (!sd) return NoAnswer{"the session bus library (libsystemd) could not be loaded"};
  sd_bus* bus = nullptr;
  if (sd->openUser(&bus) < 0 || !bus) return NoAnswer{"no session bus"};
  sd->setTimeout(bus, static_cast<uint64_t>(call.timeout.count()) * 1000);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  std::variant<std::string, NoAnswer> answer = NoAnswer{"no answer"};
  if (sd->callMethod(bus, call.destination.c_str(), call.path.c_str(), call.interfaceName.c_str(),
                     call.member.c_str(), &error, &reply, "") < 0) {
    answer = NoAnswer{error.message ? error.message : (error.name ? error.name : "the call failed")};
  } else {
    const char* text = nullptr;
    if (sd->read(reply, "s", &text) >= 0 && text) {
      answer = std::string(text);
    } else {
      answer = NoAnswer{"the answer was not a string"};
    }
  }
  if (reply) sd->unrefMessage(reply);
  sd->freeError(&error);
  sd->close(bus);
  return answer;
}

}  // namespace tidewatch::SessionBus
