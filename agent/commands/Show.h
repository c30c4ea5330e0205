/// `qorevpn show`: writes the present content of tables once. It reads tables directly, so no agent need run.
/// It asks the running agent for counters and for the status from EVPN.
#pragma once

#include <string>
#include <vector>

#include "agent/commands/FormatOptions.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

struct ShowOptions : ViewOptions {
  std::vector<std::string> subjects;
  EvpnStatus const* evpnStatus = nullptr;  ///< If set, it is shown, and no agent is asked.
};

/// Writes the subjects to `out`. A problem that leaves other rows to show is written to standard error.
/// Returns the exit status; raises if a subject cannot be shown at all.
int show(ShowOptions const& options, Output& out);

}  // namespace Agent
