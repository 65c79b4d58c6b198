// Decides whether the program may send a signal to a process.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "process_core/process_records.h"

namespace tidewatch {

enum class ProtectionReason { tidewatchSelf, hostApp, loginShell, appleSystemProcess, unconfirmedOwner };

// Either protected with one reason, or actionable.
class ProcessSafetyClass {
 public:
  static ProcessSafetyClass actionable() { return ProcessSafetyClass(std::nullopt); }
  static ProcessSafetyClass protectedBy(ProtectionReason reason) { return ProcessSafetyClass(reason); }

  bool isActionable() const { return !reason_.has_value(); }
  bool isProtected() const { return reason_.has_value(); }
  // The reason of a protected process; absent when actionable.
  std::optional<ProtectionReason> reason() const { return reason_; }

  friend bool operator==(const ProcessSafetyClass&, const ProcessSafetyClass&) = default;

 private:
  explicit ProcessSafetyClass(std::optional<ProtectionReason> reason) : reason_(reason) {}
  std::optional<ProtectionReason> reason_;
};

namespace ProcessSafetyClassifier {

inline constexpr std::string_view tidewatchBundleID = "com.tidewatch.app";

struct Context {
  int32_t selfPID = 0;
  uint32_t currentUID = 0;

  // This program's pid and user, read once and kept for the life of the process.
  static const Context& current();

  friend bool operator==(const Context&, const Context&) = default;
};

// The first protection that applies, in a fixed order: the program itself and its descendants,
// other users, host applications, shells, system binaries, core system processes.
ProcessSafetyClass classify(const ProcessSnapshot& snapshot, bool appleSystemBinary, bool inTidewatchSubtree,
                            const Context& context);

// Any process whose basename is a common shell; being a shell is enough.
bool isLoginShell(const ProcessSnapshot& snapshot);

}  // namespace ProcessSafetyClassifier
}  // namespace tidewatch
