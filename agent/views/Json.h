/// The JSON forms that the program's parts share.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "DataModel/VniStatusV2.h"

namespace Agent {

/// The status that was learned from EVPN, by VNI in order, of one VNI (in decimal; empty where there is no
/// such) or, for an empty text, of all:
///
///   {"5000": {"floods": ["10.99.0.2"], "hosts": [{"mac": .., "preference": 16, "seq": 0, "vtep": ..}]}}
nlohmann::ordered_json toJson(VxlanController::VniStatusDirV2 const& status, std::string_view vni = {});

/// The document in one line. Bytes in it that are not UTF-8, as a file's name may have, become U+FFFD.
std::string toLine(nlohmann::ordered_json const& document);

}  // namespace Agent
