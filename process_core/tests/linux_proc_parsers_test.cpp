// The /proc parsers over captured files and over the odd contents a process can give them.
#include <fstream>
#include <iterator>
#include <set>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process_core/linux/proc_parsers.h"
#include "process_core/utf8_repair.h"

namespace tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

std::string captured(const std::string& name) {
  std::ifstream in(std::string(TIDEWATCH_TEST_DATA_DIR) + "/linux/" + name, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST(LinuxProcParsers, CapturedProcessFiles) {
  // Captured from a process renamed "we (ird) name)" and started with invalid UTF-8 arguments.
  const std::string statText = captured("odd_process_stat");
  const auto stat = ProcParsers::parseStat(statText);
  ASSERT_TRUE(stat.has_value());
  EXPECT_EQ(stat->comm, "we (ird) name)");
  EXPECT_EQ(stat->parentPID, 6905);
  EXPECT_EQ(stat->startTicks, 71963u);

  EXPECT_THAT(ProcParsers::parseEffectiveUID(captured("odd_process_status")), Optional(0u));
  EXPECT_THAT(ProcParsers::parseResidentPages(captured("odd_process_statm")), Optional(832u));
  EXPECT_THAT(ProcParsers::parseBootTime(captured("proc_stat")), Optional(1795381775u));
  EXPECT_THAT(ProcParsers::parseCmdline(captured("odd_process_cmdline")),
              Optional(ElementsAre("capture", "--child", "process_core/tests/data/linux", "caf\u00e9",
                                   "bad\uFFFD\uFFFD\uFFFDtail", "")));
}

TEST(LinuxProcParsers, StatEdgeCases) {
  const std::string tail = " S 41 1 1 0 -1 4194560 10 0 0 0 7 3 0 0 20 0 1 0 5000 100 5";
  struct Case {
    std::string text;
    std::optional<std::string> comm;  // absent: the text does not parse
  };
  const Case cases[] = {
      {"12 (bash)" + tail, "bash"},
      {"12 (a b) c)" + tail, "a b) c"},
      {"12 ((()" + tail, "(("},
      {"12 ()" + tail, ""},
      {"12 (x))" + tail + " 7 8 9\n", "x)"},
      {"12 (bash" + tail, std::nullopt},
      {"12 bash)" + tail, std::nullopt},
      {"12 (bash) S 41 1 1 0 -1 4194560 10 0 0 0 7 3 0 0 20 0 1 0", std::nullopt},  // cut before field 22
      {"12 (bash) S x 1 1 0 -1 4194560 10 0 0 0 7 3 0 0 20 0 1 0 5000", std::nullopt},
      {"", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const auto stat = ProcParsers::parseStat(c.text);
    ASSERT_EQ(stat.has_value(), c.comm.has_value());
    if (!stat) continue;
    EXPECT_EQ(stat->comm, *c.comm);
    EXPECT_EQ(stat->parentPID, 41);
    EXPECT_EQ(stat->userTicks, 7u);
    EXPECT_EQ(stat->systemTicks, 3u);
    EXPECT_EQ(stat->startTicks, 5000u);
  }
  // A zombie or a dead process has exited; a sleeping one has not.
  for (const char state : {'S', 'Z', 'X'}) {
    const auto stat = ProcParsers::parseStat("12 (x) " + std::string(1, state) + tail.substr(2));
    ASSERT_TRUE(stat.has_value());
    EXPECT_EQ(ProcParsers::hasExited(*stat), state != 'S') << state;
  }
  // Field 9 holds the task's flags; kthreadd's carry PF_KTHREAD, a plain process's do not.
  const auto kthreadd = ProcParsers::parseStat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 1 0 0 20 0 1 0 1");
  ASSERT_TRUE(kthreadd.has_value());
  EXPECT_TRUE(ProcParsers::isKernelThread(*kthreadd));
  EXPECT_FALSE(ProcParsers::isKernelThread(*ProcParsers::parseStat("12 (bash)" + tail)));
}

TEST(LinuxProcParsers, StatusStatmAndBootTime) {
  EXPECT_THAT(ProcParsers::parseEffectiveUID("Name:\tx\nUid:\t1000\t1001\t1000\t1000\nGid:\t5\n"),
              Optional(1001u));
  EXPECT_FALSE(ProcParsers::parseEffectiveUID("Name:\tUid:\nGid:\t5\n").has_value());
  EXPECT_FALSE(ProcParsers::parseEffectiveUID("Uid:\t1000\n").has_value());
  EXPECT_THAT(ProcParsers::parseResidentPages("2000 150 20 1 0 300 0\n"), Optional(150u));
  EXPECT_FALSE(ProcParsers::parseResidentPages("2000\n").has_value());
  EXPECT_THAT(ProcParsers::parseBootTime("cpu 1 2\nintr 5 6\nbtime 1700000000\nprocesses 9\n"),
              Optional(1700000000u));
  EXPECT_FALSE(ProcParsers::parseBootTime("cpu 1 2\n").has_value());
}

TEST(LinuxProcParsers, StartTimeAndCPUTime) {
  const ProcessIdentity identity = ProcParsers::identityFromStartTicks(7, 1'700'000'000, 12'345, 100);
  EXPECT_EQ(identity, (ProcessIdentity{7, 1'700'000'123, 450'000}));
  EXPECT_EQ(ProcParsers::identityFromStartTicks(7, 10, 999, 1000).startTimeMicroseconds, 999'000u);
  EXPECT_EQ(ProcParsers::ticksToNanoseconds(250, 100), 2'500'000'000u);
  EXPECT_EQ(ProcParsers::ticksToNanoseconds(UINT64_MAX / 2, 100), UINT64_MAX);
}

TEST(LinuxProcParsers, CmdlineSplitsOnNul) {
  using Argv = std::optional<std::vector<std::string>>;
  EXPECT_EQ(ProcParsers::parseCmdline(std::string_view("", 0)), Argv());
  EXPECT_EQ(ProcParsers::parseCmdline(std::string_view("node\0app.js\0", 12)), Argv({"node", "app.js"}));
  EXPECT_EQ(ProcParsers::parseCmdline(std::string_view("a\0\0b\0", 5)), Argv({"a", "", "b"}));
  EXPECT_EQ(ProcParsers::parseCmdline(std::string_view("\0", 1)), Argv({""}));
  // A process that rewrote its title without a closing NUL.
  EXPECT_EQ(ProcParsers::parseCmdline("nginx: worker process"), Argv({"nginx: worker process"}));
}

TEST(LinuxProcParsers, DescriptorLinksPidsAndExecutables) {
  EXPECT_THAT(ProcParsers::parseSocketInode("socket:[20233]"), Optional(20233u));
  for (const char* link : {"socket:[]", "socket:[12", "socket:[-1]", "socket:[1x]", "pipe:[20233]",
                           "/dev/null", "anon_inode:[eventfd]"}) {
    EXPECT_FALSE(ProcParsers::parseSocketInode(link).has_value()) << link;
  }
  EXPECT_THAT(ProcParsers::parsePID("4242"), Optional(4242));
  for (const char* name : {".", "..", "self", "0", "012", "12a", "99999999999", ""}) {
    EXPECT_FALSE(ProcParsers::parsePID(name).has_value()) << name;
  }
  EXPECT_EQ(ProcParsers::withoutDeletedMarker("/usr/bin/node (deleted)"), "/usr/bin/node");
  EXPECT_EQ(ProcParsers::withoutDeletedMarker("/usr/bin/node"), "/usr/bin/node");
  EXPECT_EQ(ProcParsers::withoutDeletedMarker(" (deleted)"), " (deleted)");
}

TEST(UTF8Repair, EachMaximalIllFormedSubpartBecomesOneReplacement) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain ascii", "plain ascii"},
      {"caf\xC3\xA9 \xF0\x9F\x8C\x8A", "caf\xC3\xA9 \xF0\x9F\x8C\x8A"},
      {"\x80", "\uFFFD"},
      {"a\xE2\x82", "a\uFFFD"},         // cut short at the end
      {"\xE2\x82z", "\uFFFDz"},         // cut short by an ASCII byte
      {"\xC0\x80", "\uFFFD\uFFFD"},     // overlong
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},  // surrogate
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
      {"\xF0\x9F\x8C", "\uFFFD"},
      {"\xFF\xFE", "\uFFFD\uFFFD"},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
  };
  for (const auto& [bytes, repaired] : cases) EXPECT_EQ(repairedUTF8(bytes), repaired) << bytes;
}

TEST(LinuxProcParsers, StartedThroughASiblingLink) {
  // The links that exist in this table, each leading to the resolved file of its case.
  const std::set<std::string> links{"/usr/bin/redis-server", "/usr/bin/python3", "/usr/bin/abcdefghijklmn"};
  const auto isLink = [&links](const std::string& sibling) { return links.contains(sibling); };
  const std::tuple<std::string_view, std::string_view, std::optional<std::string>> cases[] = {
      {"/usr/bin/redis-check-rdb", "redis-server", "/usr/bin/redis-server"},
      {"/usr/bin/python3.11", "python3", "/usr/bin/python3"},
      {"/usr/bin/python3.11", "python3.11", std::nullopt},      // the name is the file's own
      {"/usr/bin/python3.11", "node", std::nullopt},            // no such link beside it
      {"/usr/bin/x", "abcdefghijklmn", "/usr/bin/abcdefghijklmn"},  // 14 bytes: whole
      {"/usr/bin/x", "abcdefghijklmno", std::nullopt},          // 15 bytes: may be cut short
      {"/usr/bin/x", "", std::nullopt},
      {"/usr/bin/x", "..", std::nullopt},
      {"/usr/bin/x", "../bin/python3", std::nullopt},
      {"x", "python3", std::nullopt},
  };
  for (const auto& [resolved, comm, expected] : cases) {
    EXPECT_EQ(ProcParsers::startedThroughSibling(resolved, comm, isLink), expected) << resolved << " " << comm;
  }
}

}  // namespace
}  // namespace tidewatch
