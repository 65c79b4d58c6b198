#include "coralline_kit/agent_run_tracker.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "process_core/agent_process_graph.h"

namespace tidewatch {
namespace {

// Folds each tree of same-provider agents into its root, which is working when any process of
// the tree is. Parent links are read from a live table and can loop; whatever leads into a loop
// stays a root of its own.
std::vector<AgentObservation> topLevelObservations(const std::vector<AgentObservation>& observations) {
  std::unordered_map<ProcessIdentity, const AgentObservation*> byIdentity;
  for (const auto& observation : observations) byIdentity.insert_or_assign(observation.identity, &observation);

  std::unordered_map<ProcessIdentity, ProcessIdentity> parent;
  for (const auto& observation : observations) {
    if (!observation.parentIdentity) continue;
    auto found = byIdentity.find(*observation.parentIdentity);
    // An agent of the other provider is no parent.
    if (found != byIdentity.end() && found->second->kind == observation.kind) {
      parent.insert_or_assign(observation.identity, *observation.parentIdentity);
    }
  }

  std::unordered_set<ProcessIdentity> cycleMembers;
  for (const auto& observation : observations) {
    std::unordered_set<ProcessIdentity> visited;
    for (auto step = parent.find(observation.identity); step != parent.end(); step = parent.find(step->second)) {
      if (!visited.insert(step->first).second) {
        cycleMembers.insert(observation.identity);
        break;
      }
    }
  }

  std::unordered_map<ProcessIdentity, std::vector<ProcessIdentity>> children;
  for (const auto& observation : observations) {
    auto link = parent.find(observation.identity);
    if (link != parent.end() && !cycleMembers.contains(observation.identity)) {
      children[link->second].push_back(observation.identity);
    }
  }

  // Without the loop members the child links form a forest, so this walk ends.
  std::unordered_map<ProcessIdentity, bool> working;
  auto subtreeWorking = [&](auto& self, const ProcessIdentity& identity) -> bool {
    if (auto known = working.find(identity); known != working.end()) return known->second;
    bool result = byIdentity.at(identity)->isWorking;
    if (auto below = children.find(identity); !result && below != children.end()) {
      result = std::any_of(below->second.begin(), below->second.end(),
                           [&](const ProcessIdentity& child) { return self(self, child); });
    }
    working[identity] = result;
    return result;
  };

  std::vector<AgentObservation> roots;
  for (const auto& observation : observations) {
    if (parent.contains(observation.identity) && !cycleMembers.contains(observation.identity)) continue;
    AgentObservation root = observation;
    root.isWorking = observation.isWorking || subtreeWorking(subtreeWorking, observation.identity);
    roots.push_back(std::move(root));
  }
  return roots;
}

void step(AgentRun& run, bool isWorking) {
  switch (run.state) {
    case AgentRunState::candidate:
      if (!isWorking) {
        run.consecutiveWorking = 0;
        return;
      }
      if (++run.consecutiveWorking >= AgentRunTracker::workingLooksToCount) {
        run.state = AgentRunState::active;
        run.consecutiveQuiet = 0;
      }
      return;
    case AgentRunState::active:
      if (isWorking) {
        run.consecutiveQuiet = 0;
        return;
      }
      if (++run.consecutiveQuiet >= AgentRunTracker::quietLooksToIdle) run.state = AgentRunState::idle;
      return;
    case AgentRunState::idle:
      if (isWorking) {
        run.state = AgentRunState::active;
        run.consecutiveQuiet = 0;
      }
      return;
    case AgentRunState::finished:
      return;
  }
}

}  // namespace

std::string_view rawValue(AgentRunState state) {
  switch (state) {
    case AgentRunState::candidate: return "candidate";
    case AgentRunState::active: return "active";
    case AgentRunState::idle: return "idle";
    case AgentRunState::finished: return "finished";
  }
  return "candidate";
}

bool isCounted(AgentRunState state) { return state == AgentRunState::active || state == AgentRunState::idle; }

void sortRuns(std::vector<AgentRun>& runs) {
  std::stable_sort(runs.begin(), runs.end(), [](const AgentRun& a, const AgentRun& b) {
    const ProcessIdentity& p = a.identity.process;
    const ProcessIdentity& q = b.identity.process;
    return std::tuple(sortOrder(a.provider), p.pid, p.startTimeSeconds, p.startTimeMicroseconds) <
           std::tuple(sortOrder(b.provider), q.pid, q.startTimeSeconds, q.startTimeMicroseconds);
  });
}

AgentRunTracker::Update AgentRunTracker::observe(const std::vector<AgentObservation>& observations) {
  std::unordered_map<AgentRunIdentity, AgentObservation> byKey;
  for (auto& observation : topLevelObservations(observations)) {
    byKey.insert_or_assign(AgentRunIdentity{observation.identity, observation.kind}, std::move(observation));
  }

  std::unordered_map<AgentRunIdentity, AgentRun> next;
  for (const auto& [key, observation] : byKey) {
    auto known = runs_.find(key);
    AgentRun run;
    if (known != runs_.end()) {
      run = known->second;
    } else {
      run.identity = key;
      run.provider = observation.kind;
    }
    run.provider = AgentProviderResolver::resolve(key.kind, observation.host, run.provider);
    run.host = observation.host;
    step(run, observation.isWorking);
    next.emplace(key, std::move(run));
  }

  Update update;
  for (const auto& [key, run] : runs_) {
    if (next.contains(key) || !run.isCounted()) continue;
    AgentRun ended = run;
    ended.state = AgentRunState::finished;
    update.finished.push_back(std::move(ended));
  }
  runs_ = std::move(next);
  sortRuns(update.finished);
  return update;
}

std::vector<AgentRun> AgentRunTracker::countedRuns() const {
  std::vector<AgentRun> counted;
  for (const auto& [key, run] : runs_) {
    if (run.isCounted()) counted.push_back(run);
  }
  sortRuns(counted);
  return counted;
}

bool AgentRunTracker::hasOpenRun() const {
  return std::any_of(runs_.begin(), runs_.end(),
                     [](const auto& entry) { return entry.second.state != AgentRunState::finished; });
}

}  // namespace tidewatch
