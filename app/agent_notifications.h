// Desktop notices of agent sessions, for who asked for them: a session that finished, once per
// completion edge the inventory reports, and one that has come to need attention, once each time
// it does. Pure: it is told the edges and the snapshots, and says what to show.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "inventory/agent_inventory_records.h"

namespace tidewatch {

struct AgentNotice {
  std::string sessionID;  // the row's stable identifier, for opening the panel on it
  std::string summary;    // "Claude Code finished"
  std::string body;       // "The session in harbour is done."
  friend bool operator==(const AgentNotice&, const AgentNotice&) = default;
};

class AgentSessionNotices {
 public:
  // One notice per edge, with the project read from the snapshot the edges came with.
  std::vector<AgentNotice> finished(const std::vector<AgentCompletionEdge>& edges,
                                    const AgentInventorySnapshot& snapshot) const;
  // Sessions that need attention now and did not in the snapshot before.
  std::vector<AgentNotice> needingAttention(const AgentInventorySnapshot& snapshot);

 private:
  std::set<std::string> needingAttention_;
};

}  // namespace tidewatch
