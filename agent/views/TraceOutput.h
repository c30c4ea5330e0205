/// Where traces go and which levels are on, as the command line and the control socket say it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Agent {

/// Switches levels: "QorEvpnModeSm/3,8", "QorEvpnModeSm/*" for all of them, "QorEvpnModeSm/" for none. Raises
/// UsageError for a handle that does not exist, else Orb::Error, and then changes nothing.
void traceLevelsIs(std::string_view handleAndLevels);

/// The levels that are on, by handle: {"QorEvpnModeSm": [3, 8]}.
nlohmann::ordered_json traceLevels();

/// Sends all traces to the end of a file, which is made if it is missing. Raises std::system_error.
void traceFileIs(std::string const& path);

}  // namespace Agent
