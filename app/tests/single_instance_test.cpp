#include "app/single_instance.h"

#include <gtest/gtest.h>

#include <deque>

namespace tidewatch {
namespace {

using namespace SingleInstance;

TEST(SingleInstance, TheFirstStartRunsALaterOneHandsOver) {
  struct Case {
    const char* what;
    std::deque<Claim> claims;
    std::deque<bool> answers;
    Outcome::Kind expected;
    bool says;
  };
  const Case cases[] = {
      {"the first start", {Claim::acquired}, {}, Outcome::Kind::run, false},
      {"a second start", {Claim::heldByAnother}, {true}, Outcome::Kind::handedOver, false},
      {"the holder was leaving", {Claim::heldByAnother, Claim::acquired}, {false}, Outcome::Kind::run, false},
      {"the holder hangs", {Claim::heldByAnother, Claim::heldByAnother}, {false, false}, Outcome::Kind::unreachable,
       true},
      {"no session bus", {Claim::noBus}, {}, Outcome::Kind::run, true},
  };
  for (auto c : cases) {
    const Outcome outcome = settle({
        .claimName =
            [&] {
              const Claim claim = c.claims.front();
              c.claims.pop_front();
              return claim;
            },
        .askHolderToOpenPanel =
            [&] {
              const bool answered = c.answers.front();
              c.answers.pop_front();
              return answered;
            },
    });
    EXPECT_EQ(outcome.kind, c.expected) << c.what;
    EXPECT_EQ(!outcome.message.empty(), c.says) << c.what;
    EXPECT_TRUE(c.claims.empty() && c.answers.empty()) << c.what << ": every step taken, none more";
  }
}

}  // namespace
}  // namespace tidewatch
