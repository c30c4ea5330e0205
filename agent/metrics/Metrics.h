/// The metrics of a site in the text format of Prometheus, from the answers of the site's processes and from
/// the tables.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "agent/site/Site.h"

namespace Agent {

/// The answers of the agent and of the EVPN side to `state` and `counters`; null for a side that does not
/// run.
struct ProcessFigures {
  nlohmann::ordered_json agent, agentCounters, evpn, evpnCounters;
};

/// [{"name": "hostIs", "owner": "exported/host", "value": 278}, ..]: the process's operations on tables.
nlohmann::ordered_json countersJson();

/// The metrics as one text. Tables that are missing or cannot be read are left out.
std::string metricsText(Site const& site, ProcessFigures const& processes);

}  // namespace Agent
