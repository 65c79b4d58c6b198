// One application per user and session: the first start takes a well-known name on the session
// bus; a later start asks that one to open its panel and leaves. The bus is reached through two
// operations, so the hand-over is decided without one.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tidewatch::SingleInstance {

inline constexpr std::string_view busName = "com.tidewatch.app";
inline constexpr std::string_view objectPath = "/com/tidewatch/app";
inline constexpr std::string_view interfaceName = "com.tidewatch.app";
inline constexpr std::string_view openPanelMethod = "OpenPanel";

enum class Claim { acquired, heldByAnother, noBus };

struct Operations {
  std::function<Claim()> claimName;
  // Asks the holder of the name to open its panel; false when it did not answer.
  std::function<bool()> askHolderToOpenPanel;
};

struct Outcome {
  enum class Kind {
    run,          // this process is the application
    handedOver,   // the running one opened its panel; exit 0
    unreachable,  // another holds the name and does not answer; exit 1
  };
  Kind kind = Kind::run;
  // For standard error: why the start runs alone or gives up; empty when all went as usual.
  std::string message;
};

// A holder that does not answer may be on its way out: the name is tried once more before the
// start gives up. Without a session bus the start runs, unguarded, and says so.
Outcome settle(const Operations& operations);

}  // namespace tidewatch::SingleInstance
