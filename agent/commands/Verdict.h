/// The checks of a demonstration: what must hold between two sites that exchange.
#pragma once

#include <string>
#include <vector>

#include "agent/views/SiteView.h"

namespace Agent {

struct Check {
  std::string claim;
  std::string fault;  ///< What is wrong; empty where the claim holds.
};

/// A site as it stands: its tables, and what its agent says that it imported.
struct SiteState {
  std::string name;
  SiteRows exported;
  SiteRows learned;
  EvpnStatus evpnStatus;
};

/// Compares: `west` with its expectation; what either exports with what the other learned.
std::vector<Check> verdictOn(SiteState const& west, SiteState const& east, Expectation const& expected);

bool holds(std::vector<Check> const& checks);

}  // namespace Agent
