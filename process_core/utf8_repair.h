// Text that arrives from the kernel as raw bytes (argument vectors, addresses) is shown as UTF-8
// with every ill-formed sequence replaced, never dropped.
#pragma once

#include <string>
#include <string_view>

namespace tidewatch {

// The bytes as well-formed UTF-8: each maximal ill-formed subpart becomes one U+FFFD, as
// Unicode's recommended practice for decoders has it.
std::string repairedUTF8(std::string_view bytes);

}  // namespace tidewatch
