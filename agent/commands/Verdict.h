/// The checks at the end of a demonstration: claims about two sites that exchange rows.
#pragma once

#include <string>
#include <vector>

#include "agent/audit/Audit.h"

namespace Agent {

struct Check {
  std::string claim;
  std::string fault;  ///< How the claim fails; empty if it holds.
};

/// A site and its present content.
struct SiteState {
  std::string name;
  SiteLook look;
};

/// Audits each site, compares `west` with its expectation, and compares the rows that each site exports with
/// those that the other one learned.
std::vector<Check> verdictOn(SiteState const& west, SiteState const& east, Expectation const& expected);

bool holds(std::vector<Check> const& checks);

}  // namespace Agent
