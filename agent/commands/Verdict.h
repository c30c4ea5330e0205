/// The checks of a demonstration: what must hold between two sites that exchange.
#pragma once

#include <string>
#include <vector>

#include "agent/audit/Audit.h"

namespace Agent {

struct Check {
  std::string claim;
  std::string fault;  ///< What is wrong; empty where the claim holds.
};

/// A site as it stands.
struct SiteState {
  std::string name;
  SiteLook look;
};

/// Each site is audited; `west` is compared with its expectation, and what either exports with what the other
/// learned.
std::vector<Check> verdictOn(SiteState const& west, SiteState const& east, Expectation const& expected);

bool holds(std::vector<Check> const& checks);

}  // namespace Agent
