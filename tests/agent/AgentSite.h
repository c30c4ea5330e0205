#pragma once

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "agent/audit/Audit.h"
#include "agent/site/Control.h"
#include "support/Paths.h"
#include "support/Program.h"

/// Waits for a condition; false after a minute, which only a fault takes.
inline bool becomes(std::function<bool()> const& condition) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// A site of a test's own and what can be seen of it from outside.
struct AgentSite {
  explicit AgentSite(std::string const& name = "site")
      : dir(folder.path() + '/' + name), view(Agent::Site(dir)) {}

  nlohmann::ordered_json ask(std::string const& request) const {
    return Agent::controlRequest(Agent::Site(dir), request);
  }
  /// What the agent holds of EVPN's rows.
  Agent::SiteRows imported() const { return look().imported(); }
  Agent::SiteLook look() const { return Agent::lookAt(Agent::Site(dir)); }
  /// How far the feed has come; null as long as no agent answers.
  nlohmann::json feed() const {
    try {
      return ask("state")["feed"];
    } catch (std::exception const&) {
      return nullptr;
    }
  }
  bool feedHasEnded() const { return feed()["ended"] == true; }

  /// Waits until an agent listens to commands.
  bool isHosted() const {
    return becomes([&] { return access(Agent::Site(dir).controlSocket().c_str(), F_OK) == 0; });
  }
  /// Waits until the feed has ended, the tables are as expected, and every row is as it should be.
  bool settles(Agent::Expectation const& expected) const {
    return becomes([&] {
      if (!feedHasEnded()) return false;
      Agent::SiteLook const now = look();
      Agent::Findings findings = audit(now);
      compareRows(findings, "exported", expected.exported, now.exported);
      compareRows(findings, "imported", expected.learned, now.imported());
      return findings.empty();
    });
  }

  TestSupport::ScratchFolder folder;
  std::string dir;
  Agent::SiteView view;
};

inline std::string recordingPath(std::string const& name) { return TestSupport::sourcePath("data/" + name); }

inline std::vector<std::string> linesOf(std::string const& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line + '\n');
  return lines;
}
