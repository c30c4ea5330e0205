/// The JSON that the program's parts send to one another.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Agent {

/// The document in one line. Bytes in it that are not UTF-8, as a file's name may have, become U+FFFD.
std::string toLine(nlohmann::ordered_json const& document);

}  // namespace Agent
