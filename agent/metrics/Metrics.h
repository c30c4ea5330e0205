/// The figures of a site in Prometheus' text form, made of what the processes of the site say of themselves
/// and of what the tables say.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "agent/site/Site.h"

namespace Agent {

/// What a running agent and an EVPN side answer to `state` and `counters`; null where none runs.
struct ProcessFigures {
  nlohmann::ordered_json agent, agentCounters, evpn, evpnCounters;
};

/// [{"name": "hostIs", "owner": "exported/host", "value": 278}, ..]: the process's operations on tables.
nlohmann::ordered_json countersJson();

/// Of a site whose tables need not be there. Never raises for a table.
std::string metricsText(Site const& site, ProcessFigures const& processes);

}  // namespace Agent
