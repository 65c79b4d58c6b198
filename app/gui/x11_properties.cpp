#include "app/gui/x11_properties.h"

#include <cstring>

namespace tidewatch::X11 {

uint32_t atom(xcb_connection_t* connection, const char* name) {
  const auto reply = own(xcb_intern_atom_reply(
      connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
  return reply ? reply->atom : 0;
}

std::vector<uint32_t> values(xcb_connection_t* connection, uint32_t window, uint32_t property, uint32_t type) {
  const auto reply =
      own(xcb_get_property_reply(connection, xcb_get_property(connection, 0, window, property, type, 0, 4096), nullptr));
  if (!reply || reply->format != 32) return {};
  const auto* begin = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
  return {begin, begin + xcb_get_property_value_length(reply.get()) / 4};
}

std::optional<uint32_t> cardinal(xcb_connection_t* connection, uint32_t window, uint32_t property) {
  const auto all = values(connection, window, property, XCB_ATOM_CARDINAL);
  if (all.empty()) return std::nullopt;
  return all.front();
}

}  // namespace tidewatch::X11
