#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "adapters/gobgp/Route.h"

namespace Gobgp {

/// The rows of the routes that a speaker announces as this identity, one for each route. A route that is no
/// row, which is not one of ours then, has VTEP 0.0.0.0. Asks the speaker over a connection of its own and
/// waits for the answer, for `limit` at most. Raises std::runtime_error, or std::invalid_argument for an
/// endpoint that is none.
std::vector<Row> listOwnRoutes(std::string const& endpoint, Identity const& identity,
                               std::chrono::seconds limit);

}  // namespace Gobgp
