#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "adapters/gobgp/Route.h"

namespace Gobgp {

/// The rows of the routes that a speaker announces with this identity, one for each route. A route that no
/// row can hold was not announced by this program; its row has VTEP 0.0.0.0. The function connects to the
/// speaker and waits up to `limit` for the answer. Raises std::runtime_error, or std::invalid_argument for a
/// wrong endpoint.
std::vector<Row> listOwnRoutes(std::string const& endpoint, Identity const& identity,
                               std::chrono::seconds limit);

}  // namespace Gobgp
