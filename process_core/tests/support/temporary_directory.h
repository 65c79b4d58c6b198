// A fresh directory under /tmp for one test, removed with everything in it when the handle goes,
// whether the test passed or stopped at a failed assertion.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace tidewatch::testing {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    char pattern[] = "/tmp/tidewatch-test-XXXXXX";
    if (::mkdtemp(pattern)) path_ = pattern;
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }

  // Empty when no directory could be made.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace tidewatch::testing
