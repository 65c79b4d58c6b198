// Tells operating-system binaries and known always-running background applications apart from the
// servers a developer runs, so that their listeners stay out of view.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch {

namespace KnownBackgroundAppClassifier {

// A few background applications (launchers, browsers' helpers, sync clients) recognised by
// bundle identifier or by a fragment of their path, ignoring case.
bool isKnownBackground(const ProcessSnapshot& snapshot);

}  // namespace KnownBackgroundAppClassifier

// One instance per batch of paths: its cache spares repeated vendor checks within the batch and,
// deliberately, not across scans. Not for sharing between threads.
class SystemClassifier {
 public:
  // Whether the file at the path is a binary the operating system vendor ships. The costly step;
  // asked only for paths under a system prefix, at most once per path.
  using IsVendorBinary = std::function<bool(const std::string& path)>;

  explicit SystemClassifier(IsVendorBinary isVendorBinary);

  // Under a system prefix (case-sensitive, no normalisation) and a vendor binary. Absent is false.
  bool isStrongSystemBackground(const std::optional<std::string>& executablePath);

  // In test order.
  static const std::array<std::string_view, 8> systemPrefixes;

  // Whether the path begins with one of the system prefixes.
  static bool hasSystemPrefix(std::string_view path);

 private:
  bool isVendorSigned(const std::string& path);

  IsVendorBinary isVendorBinary_;
  std::unordered_map<std::string, bool> vendorSignedCache_;
};

// One verdict per path, same length and order, from a fresh classifier.
std::vector<bool> strongSystemBackgroundFlags(const std::vector<std::optional<std::string>>& paths,
                                              SystemClassifier::IsVendorBinary isVendorBinary);

// The live vendor check of this system. On Linux: a regular file owned by root and writable by
// neither group nor others, in a place of the system's own plumbing (isPlumbingLocation).
bool isOperatingSystemBinary(const std::string& path);

// Under /usr/libexec/, /usr/sbin/, /sbin/ or /usr/lib/systemd/, or below /usr/lib/ with a libexec
// folder on the way. Not /usr/bin/, /bin/ nor the rest of /usr/lib/, where the interpreters,
// runtimes and servers that developers start live.
bool isPlumbingLocation(std::string_view path);

}  // namespace tidewatch
