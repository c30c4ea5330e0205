#include "agent/views/Json.h"

namespace Agent {

std::string toLine(nlohmann::ordered_json const& document) {
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Agent
