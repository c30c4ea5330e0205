/// MAC addresses as people and other systems write them.
#pragma once

#include <string_view>

#include "Wirix/EthAddr.h"

namespace Agent {

/// A MAC address in any of the usual notations, capitals or not: 02:00:00:00:00:01, 02-00-00-00-00-01,
/// 0200.0000.0001, 020000000001. Raises `Orb::ParseError`.
Wirix::EthAddr macFromPeople(std::string_view text);

}  // namespace Agent
