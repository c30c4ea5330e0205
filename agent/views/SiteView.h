/// Agent::SiteView: what the tables of a site hold, for those who compare.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "agent/site/BrIdTable.h"
#include "agent/site/Mount.h"
#include "agent/site/Site.h"

namespace Agent {

/// The rows of one folder of a site.
struct SiteRows {
  std::map<QorEvpn::MacVniPair, QorEvpn::Host> hosts;
  std::set<QorEvpn::VniVtepPair> floods;
  std::set<Bridging::BridgeId> bridgeIds;  ///< None where they are learned ones.

  friend bool operator==(SiteRows const&, SiteRows const&) = default;
};

/// Reads a site's tables, without being in anybody's way. Tables that are not there yet are empty.
class SiteView {
 public:
  explicit SiteView(Site const& site);

  Site const& site() const { return site_; }
  /// Rows as they are now. Raise Brine::CorruptionError.
  SiteRows exported();
  SiteRows learned();
  /// How many there are, at the cost of a look at two words.
  std::uint64_t exportedHosts();
  std::uint64_t learnedHosts();

 private:
  Site site_;
  Tables exported_;
  Tables learned_;
  Brine::Table<Bridging::BridgeId> brIds_;
};

/// What must be there once a trace has settled: the contents of its .end.json.
struct Expectation {
  SiteRows exported;
  /// What is imported from EVPN, as rows.
  SiteRows learned;
  /// The same as the agent's control socket answers it.
  nlohmann::json evpnStatus;

  /// Raises std::runtime_error naming the file.
  static Expectation ofFile(std::string const& path);
};

/// The status from EVPN that the rows, learned by a site, give: the form of the control socket's
/// `evpn-status`.
nlohmann::json evpnStatusOf(SiteRows const& rows);

/// The file of that name among those that come with the program: in share/qorevpn beside the program's
/// folder. Raises std::runtime_error where there is none.
std::string dataFile(std::string const& name);

}  // namespace Agent
