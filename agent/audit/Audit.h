/// Agent::audit(): a site's tables beside what should be in them, which is a pure function of what the
/// controller and EVPN know (VxlanController/ExpectedExport.h).
///
/// The parts of a busy site are read at different times; so a difference counts only if a second look finds
/// it unchanged (auditSite()).
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "agent/audit/BothSides.h"
#include "agent/audit/Findings.h"
#include "agent/audit/RemoteTables.h"
#include "agent/explain/Why.h"
#include "agent/views/SiteView.h"

namespace Agent {

/// What an audit could not look at, such as "switch leaf1", and why: "connecting".
using NotLookedAt = std::map<std::string, std::string>;

/// A site as it was seen once.
struct SiteLook {
  ExportState state;    ///< Of the whole site.
  bool isKept = false;  ///< Rows of an earlier run stay, whatever is known.
  BothSides sides;
  SiteRows exported;
  SiteRows learned;
  bool isSettled = true;  ///< Every source, EVPN's side too, has told its state or was given up.
  std::vector<RemoteTable> remoteTables;  ///< Of the switches.
  /// What the speaker announces, where one is told to announce what is exported.
  std::optional<SiteRows> announced;
  NotLookedAt notLookedAt;

  bool isOn() const { return state.isEnabled && state.isCapable; }
  /// What EVPN's view holds, as rows, sorted.
  SiteRows imported() const;
};

/// What is wrong, table by table: the exported ones, EVPN's status beside the learned ones, what switches
/// were told beside what the controller knows, the speaker's routes beside what is exported.
Findings audit(SiteLook const& look);

/// Asks the agent and reads the tables. Raises std::runtime_error where no agent runs.
SiteLook lookAt(Site const& site);

struct SiteAudit {
  Findings findings;
  NotLookedAt notLookedAt;
};

/// What is wrong in a first look and still is `pause` later, when the agent says the same of a VNI before and
/// after its rows are read; and what one of the looks left out. Raises as lookAt() does.
SiteAudit auditSite(Site const& site, std::chrono::milliseconds pause);

}  // namespace Agent
