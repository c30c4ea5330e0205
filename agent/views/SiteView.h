/// Agent::SiteView: what the tables of a site hold, for those who compare.
#pragma once

#include <nlohmann/json.hpp>
#include <tuple>

#include "agent/tables/Tables.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

/// Reads all of a site's tables, without being in anybody's way. Tables that are not there yet are empty.
class SiteView {
 public:
  explicit SiteView(Site const& site);

  /// Rows as they are now, sorted. Raise Brine::CorruptionError.
  SiteRows exported() { return rowsOf(false); }
  SiteRows learned() { return rowsOf(true); }
  /// How many hosts there are, at the cost of a look at two words.
  std::uint64_t exportedHosts() { return hosts(false); }
  std::uint64_t learnedHosts() { return hosts(true); }

 private:
  /// The agent's table of a kind, then the EVPN side's; one that is not there is not mounted.
  template <class Row>
  struct Both {
    Brine::Table<Row> tables[2];
  };
  template <class... Row>
  static std::tuple<Both<Row>...> tablesOf(std::type_identity<std::tuple<Row...>>);

  SiteRows rowsOf(bool learned);
  std::uint64_t hosts(bool learned);

  decltype(tablesOf(std::type_identity<EntryRows>())) tables_;
};

/// What must be there once a recording has been played: the contents of its .end.json.
struct Expectation {
  SiteRows exported;
  SiteRows learned;  ///< And imported by the agent.

  /// Raises std::runtime_error naming the file.
  static Expectation ofFile(std::string const& path);
};

/// The file of that name among those that come with the program: in share/qorevpn beside the program's
/// folder. Raises std::runtime_error where there is none.
std::string dataFile(std::string const& name);

}  // namespace Agent
