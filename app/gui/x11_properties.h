// The few X11 reads the application's desktop code shares: owned replies, atoms by name, and
// window properties as numbers or lists. Each read is one round trip on the given connection.
#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace tidewatch::X11 {

template <typename Reply>
using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

// Replies and errors are malloc'ed by xcb: freed with free().
template <typename Reply>
Owned<Reply> own(Reply* reply) {
  return Owned<Reply>(reply, &std::free);
}

// 0 when the server does not answer.
uint32_t atom(xcb_connection_t* connection, const char* name);
// The first 32-bit value of a CARDINAL property; absent when unset.
std::optional<uint32_t> cardinal(xcb_connection_t* connection, uint32_t window, uint32_t property);
// Every 32-bit value of a property of that type (ATOM, WINDOW, ...).
std::vector<uint32_t> values(xcb_connection_t* connection, uint32_t window, uint32_t property, uint32_t type);

}  // namespace tidewatch::X11
