#include <gtest/gtest.h>

#include "process_core/path_utils.h"
#include "process_core/text.h"

namespace tidewatch {
namespace {

TEST(Graphemes, CountAndPrefixByUserPerceivedCharacters) {
  EXPECT_EQ(graphemeCount(""), 0u);
  EXPECT_EQ(graphemeCount("abc"), 3u);
  EXPECT_EQ(graphemeCount("e\xCC\x81"), 1u);                                  // e + combining acute
  EXPECT_EQ(graphemeCount("\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB"), 1u);  // woman technologist (ZWJ)
  EXPECT_EQ(graphemeCount("a\xFF" "b"), 3u) << "an invalid byte counts as one character";
  EXPECT_EQ(graphemePrefix("e\xCC\x81" "xyz", 2), "e\xCC\x81x");
  EXPECT_EQ(graphemePrefix("ab", 5), "ab");
  EXPECT_EQ(graphemePrefix("ab", 0), "");
}

TEST(CaseFolding, FoldsUnicodeAndSurvivesInvalidBytes) {
  EXPECT_EQ(caseFolded("Node"), caseFolded("nODE"));
  EXPECT_EQ(caseFolded("\xC3\x89" "cole"), caseFolded("\xC3\xA9" "COLE"));
  EXPECT_EQ(caseFolded("AB\xFF"), "ab\xFF");
}

TEST(PathOperations, StandardizeDeleteAndAppend) {
  struct Case {
    const char* in;
    const char* standardized;
    const char* parent;
  };
  const Case cases[] = {
      {"/", "/", "/"},
      {"/a//b/./c/", "/a/b/c", "/a//b/."},
      {"/a/b/../c", "/a/c", "/a/b/.."},
      {"/..", "/", "/"},
      {"/usr", "/usr", "/"},
      {"rel/./x", "rel/x", "rel/."},
      {"x", "x", ""},
      {"", "", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(standardizePath(c.in), c.standardized) << c.in;
    EXPECT_EQ(deletingLastPathComponent(c.in), c.parent) << c.in;
  }
  EXPECT_EQ(appendingPathComponent("/", "x"), "/x");
  EXPECT_EQ(appendingPathComponent("/a/", "/b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("", "b"), "b");
}

}  // namespace
}  // namespace tidewatch
