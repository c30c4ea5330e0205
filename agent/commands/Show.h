/// `qorevpn show`: what is there, once. Tables are read directly, whether an agent runs or not; counters and
/// the status from EVPN are asked of the running agent.
#pragma once

#include <string>
#include <vector>

#include "agent/commands/FormatOptions.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

struct ShowOptions : ViewOptions {
  std::vector<std::string> subjects;
  EvpnStatus const* evpnStatus = nullptr;  ///< Where no agent is to be asked.
};

/// Writes the subjects to `out`, problems that leave something to show to standard error. Returns the exit
/// status; raises where a subject cannot be shown at all.
int show(ShowOptions const& options, Output& out);

}  // namespace Agent
