#include "agent/views/TraceOutput.h"

#include <fcntl.h>

#include <algorithm>
#include <memory>

#include "Trace/Trace.h"
#include "agent/base/Fd.h"
#include "agent/base/UsageError.h"

namespace Agent {

void traceLevelsIs(std::string_view handleAndLevels) {
  auto const slash = handleAndLevels.find('/');
  std::vector<std::string> const known = Trace::handleNames();
  if (std::find(known.begin(), known.end(), handleAndLevels.substr(0, slash)) == known.end()) {
    std::string names;
    for (std::string const& name : known) names += (names.empty() ? "" : ", ") + name;
    throw UsageError("there is no trace handle " + std::string(handleAndLevels.substr(0, slash)) +
                     "; there are " + names);
  }
  if (slash != 0 && slash + 1 == handleAndLevels.size()) {
    Trace::levelsIs(handleAndLevels.substr(0, slash), 0);
  } else {
    Trace::enable(handleAndLevels);
  }
}

nlohmann::ordered_json traceLevels() {
  auto result = nlohmann::ordered_json::object();
  for (std::string const& handle : Trace::handleNames()) {
    auto& levels = result[handle] = nlohmann::ordered_json::array();
    for (unsigned level = 0; level < Trace::levelCount; ++level) {
      if ((Trace::levels(handle) & (1U << level)) != 0) levels.push_back(level);
    }
  }
  return result;
}

void traceFileIs(std::string const& path) {
  int const fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0) throwErrno(path);
  Trace::sinkIs([file = std::make_shared<Fd>(fd)](Trace::Record const& record) {
    Trace::writeTo(file->get(), record);
  });
}

}  // namespace Agent
