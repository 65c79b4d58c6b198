#include "process_core/system_classifier.h"
#include "process_core/text.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace tidewatch {

namespace KnownBackgroundAppClassifier {
namespace {

constexpr std::array<std::string_view, 3> bundleIdentifiers{"com.raycast.macos", "company.thebrowser.dia",
                                                            "com.google.drivefs"};
constexpr std::array<std::string_view, 3> pathFragments{"/raycast.app/contents/", "/dia.app/contents/",
                                                        "/google drive.app/contents/"};

}  // namespace

bool isKnownBackground(const ProcessSnapshot& snapshot) {
  if (snapshot.bundleIdentifier) {
    const std::string bundle = asciiLowercased(*snapshot.bundleIdentifier);
    if (std::find(bundleIdentifiers.begin(), bundleIdentifiers.end(), bundle) != bundleIdentifiers.end()) {
      return true;
    }
  }
  if (!snapshot.executablePath) return false;
  const std::string path = asciiLowercased(*snapshot.executablePath);
  return std::any_of(pathFragments.begin(), pathFragments.end(),
                     [&path](std::string_view fragment) { return path.find(fragment) != std::string::npos; });
}

}  // namespace KnownBackgroundAppClassifier

const std::array<std::string_view, 8> SystemClassifier::systemPrefixes{
    "/System/", "/usr/libexec/", "/usr/sbin/", "/usr/lib/", "/usr/bin/", "/sbin/", "/bin/", "/Library/Apple/"};

SystemClassifier::SystemClassifier(IsVendorBinary isVendorBinary) : isVendorBinary_(std::move(isVendorBinary)) {}

bool SystemClassifier::hasSystemPrefix(std::string_view path) {
  return std::any_of(systemPrefixes.begin(), systemPrefixes.end(),
                     [path](std::string_view prefix) { return path.starts_with(prefix); });
}

bool SystemClassifier::isStrongSystemBackground(const std::optional<std::string>& executablePath) {
  if (!executablePath) return false;
  // The prefix test first, so that files outside system locations never pay for the vendor check.
  if (!hasSystemPrefix(*executablePath)) return false;
  return isVendorSigned(*executablePath);
}

bool SystemClassifier::isVendorSigned(const std::string& path) {
  if (auto cached = vendorSignedCache_.find(path); cached != vendorSignedCache_.end()) return cached->second;
  const bool verdict = isVendorBinary_ ? isVendorBinary_(path) : false;
  vendorSignedCache_.emplace(path, verdict);
  return verdict;
}

std::vector<bool> strongSystemBackgroundFlags(const std::vector<std::optional<std::string>>& paths,
                                              SystemClassifier::IsVendorBinary isVendorBinary) {
  SystemClassifier classifier(std::move(isVendorBinary));
  std::vector<bool> flags;
  flags.reserve(paths.size());
  for (const auto& path : paths) flags.push_back(classifier.isStrongSystemBackground(path));
  return flags;
}

}  // namespace tidewatch
