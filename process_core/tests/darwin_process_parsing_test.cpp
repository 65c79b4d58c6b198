// The pure Darwin helpers: the KERN_PROCARGS2 area, Mach time and the bundle path rule.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process_core/darwin/darwin_process_parsing.h"

namespace tidewatch {
namespace {

using Argv = std::optional<std::vector<std::string>>;

// An argument area: argc little-endian, then the bytes as given.
std::vector<uint8_t> area(int32_t argc, std::string_view rest) {
  const auto count = static_cast<uint32_t>(argc);
  std::vector<uint8_t> bytes(4 + rest.size());
  for (size_t i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(count >> (8 * i));
  std::copy(rest.begin(), rest.end(), bytes.begin() + 4);
  return bytes;
}

TEST(DarwinProcArgs, ArgumentArea) {
  using namespace std::string_view_literals;
  struct Case {
    const char* what;
    std::vector<uint8_t> bytes;
    Argv argv;
  };
  const Case cases[] = {
      {"two terminated arguments", area(2, "/bin/node\0\0\0\0node\0app.js\0"sv), Argv({"node", "app.js"})},
      {"the environment is never read", area(2, "/bin/node\0\0node\0app.js\0HOME=/x\0PATH=/y\0"sv),
       Argv({"node", "app.js"})},
      {"last argument unterminated", area(2, "/bin/node\0\0node\0app.js"sv), Argv({"node"})},
      {"no argument terminated", area(2, "/bin/node\0\0node"sv), Argv()},
      {"an empty argument once gathering started", area(3, "/bin/x\0\0x\0\0last\0"sv), Argv({"x", "", "last"})},
      {"fewer strings than argc", area(5, "/bin/x\0x\0y\0"sv), Argv({"x", "y"})},
      {"argv[0] is the start name, not the path", area(1, "/usr/local/bin/claude\0claude\0"sv),
       Argv({"claude"})},
      {"invalid UTF-8 repaired", area(1, "/x\0a\xff" "b\0"sv), Argv({"a\uFFFDb"})},
      {"argc zero", area(0, "/bin/x\0\0x\0"sv), Argv()},
      {"argc negative", area(-1, "/bin/x\0\0x\0"sv), Argv()},
      {"path never ends", area(1, "/bin/x"sv), Argv()},
      {"only padding after the path", area(1, "/bin/x\0\0\0"sv), Argv()},
      {"only argc", area(1, ""sv), Argv()},
      {"shorter than argc", {1, 0, 0}, Argv()},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Darwin::argvFromProcArgs(c.bytes), c.argv) << c.what;
  }
}

TEST(DarwinMachTime, TicksToNanoseconds) {
  EXPECT_EQ(Darwin::nanoseconds(24, {125, 3}), 1000u);
  EXPECT_EQ(Darwin::nanoseconds(24, {1, 1}), 24u);
  EXPECT_EQ(Darwin::nanoseconds(24, {0, 3}), 24u);
  EXPECT_EQ(Darwin::nanoseconds(24, {125, 0}), 24u);
  // The product overflows 64 bits while the quotient does not.
  EXPECT_EQ(Darwin::nanoseconds(uint64_t{3} << 62, {2, 3}), uint64_t{1} << 63);
}

TEST(DarwinMachTime, QuotientBeyond64BitsStops) {
  EXPECT_DEATH(Darwin::nanoseconds(UINT64_MAX, {3, 2}), "");
}

TEST(DarwinBundlePath, FirstApplicationBundleOnThePath) {
  const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
      {"/Applications/Foo.app/Contents/MacOS/Foo", "/Applications/Foo.app"},
      {"/Applications/Foo.app/Contents/Helpers/foo", std::nullopt},
      {"/Applications/Outer.app/Contents/MacOS/Inner.app/Contents/MacOS/Inner", "/Applications/Outer.app"},
      {"/Applications/Foo.APP/Contents/MacOS/Foo", std::nullopt},
      {".app/Contents/MacOS/x", ".app"},
      {"/usr/bin/node", std::nullopt},
      {std::nullopt, std::nullopt},
  };
  for (const auto& [path, bundle] : cases) {
    EXPECT_EQ(Darwin::bundlePathForExecutablePath(path), bundle) << path.value_or("(none)");
  }
}

}  // namespace
}  // namespace tidewatch
